// Runs a program and reads what it prints.
#pragma once

#include <cstdio>

// Starts the program at `path` (no search in PATH, no shell) with the arguments that follow
// `mode`, one C string each, ended by a null pointer; argv[0] is `path` itself. `mode` must be "r":
// the returned stream reads the program's standard output.
//
// The program gets /dev/null as standard input, the caller's standard error, no other descriptor,
// an empty signal mask, default signal actions and its own process group. Its real, effective and
// saved ids are those that the host has set (ProgramRules.h), or else the caller's effective ones.
// It has no supplementary group and no capability, and can't get any. Its limits are 1 GiB of
// memory, 64 open files, files of 16 MiB, and its time limit for processor time. It is killed when
// the thread that started it ends.
//
// The output is read whole or not at all: the first read waits for its end. If the program has not
// closed its output within the host's time limit (5 s by default), or prints more than 16 MiB, it
// is ended with its process group, which is logged, and reading the stream is an error (ferror(3)).
//
// Returns null, with errno set, when the program could not be started; no child is left then. After
// one of the current request had to be ended none is started (ECANCELED). When the request's client
// has left, nothing is started and the stream is empty. The caller owns the stream and must close it
// with VLIBCPclose. Several threads may call it at once.
[[gnu::sentinel]] FILE* VLIBCPopen(const char* path, const char* mode, ...);

// Closes a stream of VLIBCPopen and waits for its program, which gets SIGPIPE if it still writes,
// and is ended at its time limit. Other processes in its process group are killed. Returns the wait
// status (wait(2)), or -1 with errno set when `stream` is null or not from VLIBCPopen (EINVAL), or
// nothing was started for it (ECANCELED).
int VLIBCPclose(FILE* stream);
