// SPDX-License-Identifier: Apache-2.0
// What the command says: values on standard output, everything else on standard
// error, one line for each fault. The first fault decides the exit code. A reader
// that goes away ends the output without a word; any other failure to write is a
// fault.
#pragma once

#include <string>
#include <string_view>

#include "image/fault.h"

namespace tavdb::command {

class Console {
public:
    /// Appends to standard output; written in large pieces.
    void print(std::string_view text);
    /// Whether there is any use in printing more.
    bool isOpen() const;
    /// "tavdb: SUBJECT: sentence" on standard error; control characters are escaped.
    void report(std::string_view subject, const image::Fault &fault);
    /// The same for a line that names its place itself, "FILE:3:14: sentence".
    void reportAt(std::string_view line, image::FaultKind kind);
    /// A line on standard error that is no fault.
    void remark(std::string_view subject, std::string_view sentence);
    /// Writes what was printed so far, so that it stands in front of what is reported next.
    void flush();
    /// Writes what was printed. @return the exit code
    int finish();

private:
    std::string pending;
    bool failed = false;
    int exitCode = 0;
};

/// Opens what is closed of descriptors 0 to 2, so that no file of a database comes
/// to stand in for them; writing to a standard output that was closed still fails.
void occupyStandardDescriptors();

}  // namespace tavdb::command
