// What nuvmidi tells its user: results on standard output, whole lines at a time from
// any thread, and the one message of a failure on standard error.
#ifndef NUVMIDI_CLI_REPORT_H
#define NUVMIDI_CLI_REPORT_H

#include <string>

namespace nuvcli {

// Writes and flushes `text` at once, so that lines from the library's thread and the main
// thread never mix and a pipe sees each line as it happens.
void Print(const std::string& text);

// Prints "nuvmidi: " and the message on standard error and returns `code`, so that a
// failure reads `return Fail(...)`.
int Fail(int code, const char* format, ...) __attribute__((format(printf, 2, 3)));

} // namespace nuvcli

#endif
