// SPDX-License-Identifier: Apache-2.0
// Descriptions of a data model as plain text: the templates in double braces and
// the wiki quotes become words, white space is folded. Bounded, however templates
// refer to each other.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace tavdb::image {

/// What some templates stand for depends on the parameter they describe.
struct TextContext {
    std::string_view object;
    std::string_view name;  ///< empty in the description of an object
    std::string_view units;
    std::string_view typeDescription;
};

class TextCleaner {
public:
    /// What {{template|ID}} stands for.
    void addTemplate(std::string id, std::string text);

    std::string clean(std::string_view raw, const TextContext &context) const;

private:
    std::map<std::string, std::string, std::less<>> templates;
};

}  // namespace tavdb::image
