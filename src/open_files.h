// The limit of open files. Ferrodeck raises its own at the start; the programs that it launches get
// the one that the session gave us: some still keep a table with a place for every possible file,
// and select() cannot do with more than 1024.

#pragma once

namespace open_files {

// Raises the soft limit to the hard one and keeps the old value. Once, before the first thread.
void raise_limit();

// Puts the old value back. For a child between fork and exec, where nothing else may be called: it
// makes one system call and takes no lock. Nothing happens when the limit was never raised.
void restore_limit();

}  // namespace open_files
