// SPDX-License-Identifier: Apache-2.0
#include "image/datamodel_reader.h"

#include <array>
#include <pugixml.hpp>

#include "image/datamodel_leaf.h"
#include "image/datamodel_syntax.h"
#include "image/datamodel_text.h"
#include "image/datamodel_tree.h"
#include "image/text_util.h"

namespace tavdb::image {

namespace {

/// Attributes that concern a protocol or the meaning of objects: counted, never part of a database.
struct NoteRow {
    const char *attribute;
    bool withValue;
};

constexpr std::array<NoteRow, 4> kParameterNotes = {{
    {"access", true},
    {"activeNotify", true},
    {"forcedInform", false},
    {"status", true},
}};

constexpr std::array<NoteRow, 7> kObjectNotes = {{
    {"access", true},
    {"status", true},
    {"minEntries", false},
    {"maxEntries", false},
    {"numEntriesParameter", false},
    {"enableParameter", false},
    {"discriminatorParameter", false},
}};

std::string_view localName(const pugi::xml_node &element) {
    const std::string_view name = element.name();
    const auto colon = name.find(':');
    return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

class ModelReader {
public:
    ModelReader(const SourceText &text, const ReadOptions &given, Description &result)
        : source(text), options(given), description(result) {}

    void read(const pugi::xml_node &document) {
        types.load(document);
        for (const auto &stored : document.children("template"))
            cleaner.addTemplate(stored.attribute("id").value(), stored.text().get());
        noteChildren(document, "import");
        for (const auto &model : document.children("model"))
            readModel(model);
    }

    const ObjectTree &objects() const {
        return tree;
    }

private:
    void readModel(const pugi::xml_node &model) {
        auto &name = description.model.source.name;
        name += (name.empty() ? "" : ", ") + std::string(model.attribute("name").value());
        for (const auto *what : {"profile", "component"})
            noteChildren(model, what);
        readObject(model, {});
        for (const auto &object : model.children("object")) {
            const std::string path = object.attribute("name").value();
            readObject(object, path.empty() ? "." : path);  // an empty path would be the root's
        }
    }

    /// The model itself is the root object.
    void readObject(const pugi::xml_node &object, const std::string &path) {
        Refusal refusal{};
        auto *place = tree.reach(path, refusal);
        if (place != nullptr && !path.empty() && place->description.empty()) {
            place->description =
                cleaner.clean(object.child("description").text().get(), {objectName(path), {}, {}, {}});
            place->position = positionOf(object);
        }
        for (const auto &row : kObjectNotes)
            noteAttribute(object, "object", row);
        for (const auto *what : {"uniqueKey", "command", "event"})
            noteChildren(object, what);
        for (const auto &parameter : object.children("parameter"))
            readParameter(parameter, path, place, refusal);
    }

    void readParameter(const pugi::xml_node &parameter, const std::string &objectPath, Object *place,
                       const Refusal &objectRefusal) {
        const auto syntaxElement = parameter.child("syntax");
        if (!syntaxElement) {
            description.report.addNote("parameter without a syntax");
            return;
        }
        const auto path = objectPath + parameter.attribute("name").value();
        for (const auto &row : kParameterNotes)
            noteAttribute(parameter, "parameter", row);
        std::string error;
        const auto syntax = types.resolve(syntaxElement, error);
        if (place == nullptr)
            description.report.addOmitted(path, objectRefusal.why, objectRefusal.what);
        else if (!syntax)
            description.report.addOmitted(path, Omission::unknownType, error);
        else
            addParameter(parameter, syntaxElement, *syntax, path, *place);
    }

    void addParameter(const pugi::xml_node &parameter, const pugi::xml_node &syntaxElement, const Syntax &syntax,
                      const std::string &path, Object &place) {
        auto made = makeLeaf(syntax, syntaxElement, options);
        const auto object = objectName(std::string_view(path).substr(0, path.rfind('.') + 1));
        made.leaf.name = parameter.attribute("name").value();
        made.leaf.position = positionOf(parameter);
        made.leaf.description = cleaner.clean(parameter.child("description").text().get(),
                                              {object, made.leaf.name, syntax.units, syntax.typeDescription});
        made.leaf.secret = made.leaf.secret || isMarkedSecret(parameter);
        Refusal refusal{};
        if (ObjectTree::addLeaf(place, std::move(made.leaf), refusal))
            description.report.addExpressed(path, made.losses);
        else
            description.report.addOmitted(path, refusal.why, refusal.what);
    }

    static bool isMarkedSecret(const pugi::xml_node &element) {
        return element.attribute("hidden").as_bool() || element.attribute("secured").as_bool();
    }

    /// The last part that is a name: "Line" of "Device.Line.{i}.".
    static std::string_view objectName(std::string_view path) {
        constexpr std::string_view instance = "{i}.";
        if (path.ends_with(instance))
            path.remove_suffix(instance.size());
        if (path.ends_with('.'))
            path.remove_suffix(1);
        return path.substr(path.rfind('.') + 1);
    }

    void noteAttribute(const pugi::xml_node &element, const char *kind, const NoteRow &row) {
        const auto attribute = element.attribute(row.attribute);
        if (!attribute)
            return;
        auto what = std::string(kind) + " " + row.attribute;
        description.report.addNote(row.withValue ? what + " " + attribute.value() : what);
    }

    void noteChildren(const pugi::xml_node &element, const char *what) {
        for (const auto &child : element.children(what))
            if (child)
                description.report.addNote(what);
    }

    Position positionOf(const pugi::xml_node &element) const {
        // The offset is that of the name, one behind the bracket.
        const auto offset = element.offset_debug();
        return offset > 0 ? source.positionAt(static_cast<size_t>(offset) - 1) : Position{};
    }

    const SourceText &source;
    const ReadOptions &options;
    Description &description;
    DataTypes types;
    TextCleaner cleaner;
    ObjectTree tree;
};

void readDocument(const pugi::xml_node &document, const SourceText &source, const ReadOptions &options,
                  Description &description, Diagnostics &diagnostics) {
    if (localName(document) != "document" || !document.child("model")) {
        diagnostics.add(
            {1, 1}, "this XML is no data model: a document with a model is expected, found " + quote(document.name()));
        return;
    }
    ModelReader reader(source, options, description);
    reader.read(document);
    const auto components = reader.objects().countExpanded(options.instances);
    if (components > options.componentsMax) {
        diagnostics.add({1, 1}, "with " + std::to_string(options.instances) +
                                    " instances of every object there are more than " +
                                    std::to_string(options.componentsMax) + " nodes and leaves");
        return;
    }
    description.model.root = reader.objects().expand(options.instances);
}

}  // namespace

void readDataModel(const SourceText &source, const ReadOptions &options, Description &description,
                   Diagnostics &diagnostics) {
    description.model.source.kind = "datamodel";
    pugi::xml_document xml;
    const auto text = source.text();
    const auto result = xml.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!result) {
        diagnostics.add(source.positionAt(static_cast<size_t>(result.offset)),
                        std::string("this is not well-formed XML: ") + result.description());
        return;
    }
    readDocument(xml.document_element(), source, options, description, diagnostics);
}

}  // namespace tavdb::image
