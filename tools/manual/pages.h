// SPDX-License-Identifier: Apache-2.0
// The pages of the manual, in Markdown. Those of commands are made from the
// declarations of the command line and from docs/COMMAND.md, those of file formats
// from a document each. Nothing is written here that stands there.
#pragma once

#include <string>
#include <vector>

#include "declarations.h"
#include "markdown.h"

namespace tavdb::manual {

struct Page {
    std::string name;  ///< "tavdb-get"
    int section;       ///< of the manual: 1 commands, 5 file formats
    std::string text;
};

/// A document in docs/ that is a page as a whole.
struct Format {
    const char *file;  ///< "MEDIA.md"
    const char *name;
    const char *about;
};

/// The formats that have a page.
const std::vector<Format> &formats();

Page formatPage(const Format &format, const Document &document, const command::Declarations &declarations);

/// The page of the program and one for each command.
std::vector<Page> commandPages(const command::Declarations &declarations, const Document &manual);

}  // namespace tavdb::manual
