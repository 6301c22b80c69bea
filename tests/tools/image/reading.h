// SPDX-License-Identifier: Apache-2.0
// Short ways for tests to read a description from a text and to look at what
// came out.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "image/description.h"

namespace tavdb::image {

inline Description read(const std::string &text, const ReadOptions &options = {}) {
    return readDescriptionText("d.yaml", text, options);
}

inline std::vector<std::string> errorLines(const Description &description) {
    std::vector<std::string> lines;
    for (const auto &error : description.errors)
        lines.push_back(formatDiagnostic("d.yaml", error));
    return lines;
}

/// A description that must be good; its errors are the test's failure.
inline Description readGood(const std::string &text, const ReadOptions &options = {}) {
    auto description = read(text, options);
    for (const auto &line : errorLines(description))
        ADD_FAILURE() << line;
    return description;
}

inline const Leaf &leafAt(const Description &description, const std::string &path) {
    static const Leaf missing;
    const auto *component = findComponent(description.model, path);
    const auto *leaf = component == nullptr ? nullptr : component->leaf();
    if (leaf == nullptr)
        ADD_FAILURE() << "no leaf " << path;
    return leaf == nullptr ? missing : *leaf;
}

inline const Node &nodeAt(const Description &description, const std::string &path) {
    static const Node missing;
    const auto *component = findComponent(description.model, path);
    const auto *node = component == nullptr ? nullptr : component->node();
    if (node == nullptr)
        ADD_FAILURE() << "no node " << path;
    return node == nullptr ? missing : *node;
}

}  // namespace tavdb::image
