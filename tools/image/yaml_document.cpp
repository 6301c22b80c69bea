// SPDX-License-Identifier: Apache-2.0
#include "image/yaml_document.h"

#include <yaml-cpp/depthguard.h>
#include <yaml-cpp/eventhandler.h>

#include <sstream>
#include <vector>

#include "image/yaml_scalar.h"

namespace tavdb::image {

namespace {

/// The parser accepts some tabs as indentation and complains about others in odd words.
void findTabs(const SourceText &source, Diagnostics &diagnostics) {
    for (size_t number = 1; number <= source.lineCount(); number++) {
        const auto line = source.line(number);
        const auto first = line.find_first_not_of(" \t\r");
        const auto tab = line.find('\t');
        if (first != std::string_view::npos && tab < first)
            diagnostics.add({static_cast<uint32_t>(number), static_cast<uint32_t>(tab + 1)},
                            "a tab indents this line; indent with blanks");
    }
}

/// Only where documents start.
class DocumentStarts : public YAML::EventHandler {
public:
    std::vector<YAML::Mark> marks;

    void OnDocumentStart(const YAML::Mark &mark) override {
        marks.push_back(mark);
    }
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark & /*mark*/, YAML::anchor_t /*anchor*/) override {}
    void OnAlias(const YAML::Mark & /*mark*/, YAML::anchor_t /*anchor*/) override {}
    void OnScalar(const YAML::Mark & /*mark*/, const std::string & /*tag*/, YAML::anchor_t /*anchor*/,
                  const std::string & /*value*/) override {}
    void OnSequenceStart(const YAML::Mark & /*mark*/, const std::string & /*tag*/, YAML::anchor_t /*anchor*/,
                         YAML::EmitterStyle::value /*style*/) override {}
    void OnSequenceEnd() override {}
    void OnMapStart(const YAML::Mark & /*mark*/, const std::string & /*tag*/, YAML::anchor_t /*anchor*/,
                    YAML::EmitterStyle::value /*style*/) override {}
    void OnMapEnd() override {}
};

/// Of the first two documents. The parser can find documents without end where it
/// meets a stray comma, so never more than two are asked for.
std::vector<YAML::Mark> findDocuments(const std::string &text) {
    std::istringstream stream(text);
    YAML::Parser parser(stream);
    DocumentStarts starts;
    if (parser.HandleNextDocument(starts))
        parser.HandleNextDocument(starts);
    return starts.marks;
}

/// An error at the end mark that the parser is given is one at the end of the file.
Position withinFile(const SourceText &source, const YAML::Mark &mark) {
    const auto position = positionOf(mark);
    return position.line <= source.lineCount() ? position : source.positionAt(source.text().size());
}

/// Sentences of our own where the parser's are hard to understand.
std::string syntaxSentence(const std::string &message) {
    if (message == YAML::ErrorMsg::DOC_IN_SCALAR)
        return "a quoted text is not ended before the end of the file";
    if (message == YAML::ErrorMsg::END_OF_MAP)
        return "this line is indented less than the lines before it, but as none of the lines that they belong to";
    if (message == YAML::ErrorMsg::MAP_VALUE)
        return "a value cannot stand here; look at the indentation and the ':' before it";
    return "this is not YAML: " + message;
}

/// An end mark behind the text shows up a quoted text that nobody ended, which
/// the parser would otherwise take as ended by the end of the file.
std::string withEndMark(std::string_view text) {
    return std::string(text) + (text.ends_with('\n') ? "...\n" : "\n...\n");
}

std::optional<YAML::Node> parseOne(const SourceText &source, Diagnostics &diagnostics) {
    const auto text = withEndMark(source.text());
    const auto documents = findDocuments(text);
    if (documents.size() > 1) {
        diagnostics.add(withinFile(source, documents[1]), documents[0].pos == documents[1].pos
                                                              ? "nothing can begin with this"
                                                              : "a file holds one document, a second one begins here");
        return std::nullopt;
    }
    auto document = YAML::Load(text);
    if (!document.IsNull())
        return document;
    diagnostics.add({1, 1}, "the file describes nothing");
    return std::nullopt;
}

}  // namespace

std::optional<YAML::Node> parseDocument(const SourceText &source, Diagnostics &diagnostics) {
    findTabs(source, diagnostics);
    if (!diagnostics.empty())
        return std::nullopt;
    try {
        return parseOne(source, diagnostics);
    } catch (const YAML::DeepRecursion &problem) {
        diagnostics.add(withinFile(source, problem.mark), "brackets or lists are nested too deep");
    } catch (const YAML::Exception &problem) {
        diagnostics.add(withinFile(source, problem.mark), syntaxSentence(problem.msg));
    }
    return std::nullopt;
}

}  // namespace tavdb::image
