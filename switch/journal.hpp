// Where log lines go: to the standard error stream, with the journal's levels where it is read by
// the journal.
#pragma once

namespace varro2::switchd {

// For all lines of the process, the library's included. Call once, before anything is logged.
void write_log_to_standard_error(bool verbose);

} // namespace varro2::switchd
