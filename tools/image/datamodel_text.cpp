// SPDX-License-Identifier: Apache-2.0
#include "image/datamodel_text.h"

#include <algorithm>
#include <array>
#include <vector>

#include "image/text_util.h"

namespace tavdb::image {

namespace {

constexpr size_t kTextBytesMax = 16384;
constexpr int kExpansionsMax = 1000;
constexpr int kNestingMax = 8;

enum class Form {
    fixed,  ///< the rule's text
    nothing,
    argument,   ///< the first argument
    reference,  ///< the same without leading path marks, or the own name
    object,     ///< the same, or the own object's name
    sentence,   ///< the rule's text, the arguments, a full stop
    units,
    typeDescription,
    stored
};

struct Rule {
    std::string_view name;
    Form form;
    std::string_view text;
};

constexpr std::array<Rule, 31> kRules = {{
    {"param", Form::reference, {}},
    {"object", Form::object, {}},
    {"command", Form::reference, {}},
    {"event", Form::reference, {}},
    {"enum", Form::argument, {}},
    {"value", Form::argument, {}},
    {"pattern", Form::argument, {}},
    {"true", Form::fixed, "true"},
    {"false", Form::fixed, "false"},
    {"null", Form::fixed, "null"},
    {"empty", Form::fixed, "an empty string"},
    {"numentries", Form::fixed, "The number of entries."},
    {"hidden", Form::fixed, "The value is hidden when it is read."},
    {"secured", Form::fixed, "The value is hidden when it is read."},
    {"list", Form::sentence, "Comma-separated list"},
    {"reference", Form::sentence, "Reference to"},
    {"deprecated", Form::sentence, "Deprecated since"},
    {"obsoleted", Form::sentence, "Obsoleted since"},
    {"deleted", Form::sentence, "Deleted since"},
    {"units", Form::units, {}},
    {"datatype", Form::typeDescription, {}},
    {"template", Form::stored, {}},
    {"noreference", Form::nothing, {}},
    {"nolist", Form::nothing, {}},
    {"noenum", Form::nothing, {}},
    {"nopattern", Form::nothing, {}},
    {"nohidden", Form::nothing, {}},
    {"nokeys", Form::nothing, {}},
    {"keys", Form::nothing, {}},
    {"nodatatype", Form::nothing, {}},
    {"nounits", Form::nothing, {}},
}};

using Templates = std::map<std::string, std::string, std::less<>>;

enum class Brace { none, open, close };

/// Tells the double braces of templates from single ones, as in {i}, that may
/// stand inside of them.
class BraceScanner {
public:
    Brace at(std::string_view text, size_t place) {
        const auto pair = text.substr(place, 2);
        if (pair == "{{")
            return Brace::open;
        if (text[place] == '{')
            singles++;
        if (text[place] != '}')
            return Brace::none;
        if (singles == 0)
            return pair == "}}" ? Brace::close : Brace::none;
        singles--;
        return Brace::none;
    }

private:
    int singles = 0;
};

/// Offset of the braces that close those at the start of `text`.
size_t findClose(std::string_view text) {
    BraceScanner scanner;
    int open = 0;
    for (size_t place = 0; place < text.size(); place++) {
        const auto brace = scanner.at(text, place);
        if (brace == Brace::none)
            continue;
        open += brace == Brace::open ? 1 : -1;
        if (open == 0)
            return place;
        place++;
    }
    return std::string_view::npos;
}

std::vector<std::string_view> splitArguments(std::string_view body) {
    std::vector<std::string_view> arguments;
    BraceScanner scanner;
    int open = 0;
    size_t start = 0;
    for (size_t place = 0; place < body.size(); place++) {
        const auto brace = scanner.at(body, place);
        if (body[place] == '|' && open == 0) {
            arguments.push_back(body.substr(start, place - start));
            start = place + 1;
        }
        if (brace == Brace::none)
            continue;
        open += brace == Brace::open ? 1 : -1;
        place++;
    }
    arguments.push_back(body.substr(start));
    return arguments;
}

std::string withoutPathMarks(const std::string &text) {
    const auto first = text.find_first_not_of("#.^");
    return first == std::string::npos ? text : text.substr(first);
}

class Expansion {
public:
    Expansion(const Templates &stored, const TextContext &given) : templates(stored), context(given) {}

    std::string expand(std::string_view text, int depth) {
        std::string plain;
        while (!text.empty() && plain.size() <= kTextBytesMax) {
            const auto open = depth > kNestingMax ? std::string_view::npos : text.find("{{");
            const auto close = open == std::string_view::npos ? open : findClose(text.substr(open));
            if (close == std::string_view::npos)
                return plain.append(text);
            plain.append(text.substr(0, open));
            plain += replace(text.substr(open + 2, close - 2), depth + 1);
            text.remove_prefix(open + close + 2);
        }
        return plain;
    }

private:
    std::string replace(std::string_view body, int depth) {
        if (--expansionsLeft < 0)
            return {};
        const auto arguments = splitArguments(body);
        const auto *rule =
            std::find_if(kRules.begin(), kRules.end(), [&](const Rule &known) { return known.name == arguments[0]; });
        if (rule == kRules.end())
            return arguments.size() > 1 ? join(arguments, depth) : std::string(body);
        return apply(*rule, arguments, depth);
    }

    std::string apply(const Rule &rule, const std::vector<std::string_view> &arguments, int depth) {
        const auto first = arguments.size() > 1 ? arguments[1] : std::string_view{};
        switch (rule.form) {
            case Form::fixed:
                return std::string(rule.text);
            case Form::argument:
                return expand(first, depth);
            case Form::reference:
                return first.empty() ? std::string(context.name) : withoutPathMarks(expand(first, depth));
            case Form::object:
                return first.empty() ? std::string(context.object) : withoutPathMarks(expand(first, depth));
            case Form::sentence:
                return std::string(rule.text) + (first.empty() ? "" : " ") + join(arguments, depth) + ".";
            case Form::units:
                return std::string(context.units);
            case Form::typeDescription:
                return expand(context.typeDescription, depth);
            case Form::stored: {
                const auto found = templates.find(first);
                return found == templates.end() ? std::string{} : expand(found->second, depth);
            }
            default:
                return {};
        }
    }

    std::string join(const std::vector<std::string_view> &arguments, int depth) {
        std::string joined;
        for (size_t i = 1; i < arguments.size(); i++)
            joined += (i == 1 ? "" : " ") + expand(arguments[i], depth);
        return joined;
    }

    const Templates &templates;
    const TextContext &context;
    int expansionsLeft = kExpansionsMax;
};

/// Two and more apostrophes are marks of emphasis.
std::string withoutEmphasis(const std::string &text) {
    std::string plain;
    for (size_t at = 0; at < text.size();) {
        const auto end = std::min(text.find_first_not_of('\'', at), text.size());
        if (end - at == 1)
            plain += '\'';
        at = end;
        const auto next = std::min(text.find('\'', at), text.size());
        plain.append(text, at, next - at);
        at = next;
    }
    return plain;
}

void cut(std::string &text) {
    if (text.size() <= kTextBytesMax)
        return;
    text.resize(kTextBytesMax);
    text.resize(std::min(firstBadUtf8(text), text.size()));
    text += "...";
}

}  // namespace

void TextCleaner::addTemplate(std::string id, std::string text) {
    templates.emplace(std::move(id), std::move(text));
}

std::string TextCleaner::clean(std::string_view raw, const TextContext &context) const {
    auto text = foldSpace(withoutEmphasis(Expansion(templates, context).expand(raw, 0)));
    cut(text);
    return text;
}

}  // namespace tavdb::image
