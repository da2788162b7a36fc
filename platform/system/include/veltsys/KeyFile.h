// Files of `key="value"` lines: comments begin with '#', quotes may be left out, of two lines with
// the same key the last counts.
#pragma once

// Returns 1 when the file at `path` has `key` with exactly `value`, 0 when it does not or can't be
// read. `flags` must be 0. Several threads may call it at once.
int VLIBCFileCheckKeyValue(const char* path, const char* key, const char* value, int flags);
