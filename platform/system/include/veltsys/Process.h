// Running another program and reading what it prints.
#pragma once

#include <cstdio>

// Starts the program at `path` (no search in PATH, no shell) with the arguments that follow
// `mode`, one C string each, ended by a null pointer; argv[0] is `path` itself. `mode` must be "r":
// the returned stream reads the program's standard output.
//
// The program gets /dev/null as standard input, the caller's standard error, no other descriptor,
// an empty signal mask, default signal actions and a process group of its own. Its real, effective
// and saved ids are those that the host has settled (ProgramRules.h), or else the caller's
// effective ones; it has no supplementary group, no capability and no way to get any. It may use
// 1 GiB of memory, 64 open files, files of 16 MiB, and processor time for as long as it may run. It
// is killed when the thread that started it ends.
//
// The output arrives whole or not at all: the first read waits for its end. A program that has not
// closed its output within the time that the host allows (5 s), or prints more than 16 MiB, is
// ended with its process group; that is logged, and the stream is empty. Reading is not blocked
// for longer.
//
// Returns null, with errno set, when the program could not be started; no child is left then. Where
// the host wants no further program for the present request, the stream is empty and nothing was
// started. The stream belongs to the caller, who ends it with VLIBCPclose and nothing else.
// May be called from several threads at once.
[[gnu::sentinel]] FILE* VLIBCPopen(const char* path, const char* mode, ...);

// Closes a stream of VLIBCPopen and waits for its program, which gets SIGPIPE if it still writes; a
// program that goes on until its time is over is ended. Whatever it leaves running in its process
// group is killed. Returns the wait status (wait(2)), or -1 with errno set when `stream` is null or
// not one of ours (EINVAL), or nothing was started for it (ECANCELED).
int VLIBCPclose(FILE* stream);
