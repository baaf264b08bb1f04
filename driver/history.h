// The lines that were typed into the shell, kept from one session to the next.
#pragma once

namespace quen::driver {

// Reads the kept lines into readline's history. There may be none.
void loadHistory();

// Keeps the last thousand of them. Says so when that fails.
void saveHistory();

}  // namespace quen::driver
