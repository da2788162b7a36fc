// Running another program and reading what it prints.
#pragma once

#include <cstdio>

// Starts the program at `path` (no search in PATH, no shell) with the arguments that follow
// `mode`, one C string each, ended by a null pointer; argv[0] is `path` itself. `mode` must be "r":
// the returned stream reads the program's standard output, unbuffered data never mixing with
// another child's. The child gets /dev/null as standard input, the caller's standard error, no
// other descriptor, an empty signal mask and default signal actions.
//
// Returns null, with errno set, when the program could not be started; no child is left then.
// The stream belongs to the caller, who ends it with VLIBCPclose and nothing else.
// May be called from several threads at once.
[[gnu::sentinel]] FILE* VLIBCPopen(const char* path, const char* mode, ...);

// Closes a stream of VLIBCPopen and waits for its program. Returns the wait status (wait(2)), or
// -1 with errno set when `stream` is null or not one of ours. A program that still writes gets
// SIGPIPE; one that ignores it is waited for.
int VLIBCPclose(FILE* stream);
