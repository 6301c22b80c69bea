// SPDX-License-Identifier: Apache-2.0
#include "image/description.h"

#include <exception>

#include "image/datamodel_reader.h"
#include "image/files.h"
#include "image/source_text.h"
#include "image/yaml_reader.h"

namespace tavdb::image {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool looksLikeXml(std::string_view text) {
    if (text.starts_with(kByteOrderMark))
        text.remove_prefix(kByteOrderMark.size());
    const auto first = text.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && text[first] == '<';
}

std::string baseName(const std::string &path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

Description failed(Position position, std::string sentence, FaultKind kind = FaultKind::usage) {
    Description description;
    description.errors.push_back({position, std::move(sentence), kind});
    return description;
}

Description readChecked(const SourceText &source, const ReadOptions &options) {
    Description description;
    Diagnostics diagnostics;
    if (looksLikeXml(source.text()))
        readDataModel(source, options, description, diagnostics);
    else
        readYaml(source, options, description, diagnostics);
    if (!diagnostics.empty())
        description = {};
    description.errors = diagnostics.take();
    return description;
}

}  // namespace

Description readDescriptionText(const std::string &file, const std::string &text, const ReadOptions &options) {
    const SourceText source(text);
    if (const auto fault = findTextFault(text))
        return failed(source.positionAt(fault->offset), fault->sentence);
    if (text.find_first_not_of(" \t\r\n") == std::string::npos)
        return failed({1, 1}, "the file is empty");
    try {
        auto description = readChecked(source, options);
        description.model.source.file = baseName(file);
        return description;
    } catch (const std::exception &problem) {
        // Running out of memory, or a fault of a parser that is not a syntax error.
        return failed({}, std::string("cannot be read: ") + problem.what(), FaultKind::failed);
    }
}

Description readDescription(const std::string &path, const ReadOptions &options) {
    const auto content = readFile(path, kSourceBytesMax);
    if (!content)
        return failed({}, content.error.sentence, content.error.kind);
    return readDescriptionText(path, *content.value, options);
}

}  // namespace tavdb::image
