// SPDX-License-Identifier: Apache-2.0
// As much of Markdown as it takes to cut the documents in docs/ into manual pages:
// sections, tables and links. Everything else is handed on as it stands, to be read
// by the converter that makes the pages.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tavdb::manual {

struct Section {
    std::string title;
    std::string body;
};

struct Document {
    std::string title;
    std::string introduction;  ///< in front of the first section
    std::vector<Section> sections;

    const Section *find(const std::string &sectionTitle) const;
};

/// Cuts a document at its headings of the second level.
Document readDocument(const std::string &text);

using Row = std::vector<std::string>;

/// Calls `change` for each table, with its rows without the line below the first one,
/// and puts what it returns in the table's place.
std::string withTables(const std::string &body, const std::function<std::string(const std::vector<Row> &)> &change);

/// "term", and what it means, for each row but the first.
std::string definitionList(const std::vector<Row> &rows);

/// Rows as they stood.
std::string tableText(const std::vector<Row> &rows);

/// Calls `change` with text and target of each link, and puts what it returns in the link's place.
std::string withLinks(const std::string &body,
                      const std::function<std::string(const std::string &, const std::string &)> &change);

/// Takes the first block between lines of ``` out of a text. @return the block, with these lines
std::string takeFirstBlock(std::string &body);

/// Every "### " at the start of a line outside of a block becomes "## ".
std::string withSubsectionsRaised(const std::string &body);

/// Plain text, in which nothing has a meaning of its own.
std::string escaped(const std::string &text);

}  // namespace tavdb::manual
