// SPDX-License-Identifier: Apache-2.0
// Databases of published data models. The XML is read a second time here, straight
// and by the letter, and what it says about a parameter is compared with what the
// library finds in the database under its name.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <pugixml.hpp>
#include <random>
#include <set>
#include <sstream>

#include "image/description.h"
#include "tools/image/attached.h"
#include "tools/test_place.h"

namespace tavdb::image {
namespace {

constexpr size_t kSample = 1000;

struct Parameter {
    std::string path;    ///< "/Device/Time/Client/1/Enable"
    std::string source;  ///< "Device.Time.Client.{i}.Enable"
    pugi::xml_node syntax;
};

std::string pathOfSource(const std::string &source) {
    std::string path;
    std::istringstream words(source);
    for (std::string word; std::getline(words, word, '.');)
        path += "/" + (word == "{i}" ? "1" : word);
    return path;
}

std::vector<Parameter> readParameters(const pugi::xml_document &document) {
    std::vector<Parameter> parameters;
    for (const auto &parameter : document.select_nodes("//model//parameter[syntax]")) {
        const auto owner = parameter.node().parent();
        const std::string prefix = owner.name() == std::string_view("object") ? owner.attribute("name").value() : "";
        const auto source = prefix + parameter.node().attribute("name").value();
        parameters.push_back({pathOfSource(source), source, parameter.node().child("syntax")});
    }
    return parameters;
}

struct NumberType {
    int32_t code;
    long double minimum;
    long double maximum;
};

const std::map<std::string, NumberType> kIntegers = {
    {"int", {TAVDB_TYPE_S32, -2147483648.0L, 2147483647.0L}},
    {"unsignedInt", {TAVDB_TYPE_U32, 0, 4294967295.0L}},
    {"long", {TAVDB_TYPE_S64, -9223372036854775808.0L, 9223372036854775807.0L}},
    {"unsignedLong", {TAVDB_TYPE_U64, 0, 18446744073709551615.0L}},
};

const std::set<std::string> kPrimitives = {"boolean", "int",       "unsignedInt", "long",   "unsignedLong",
                                           "decimal", "hexBinary", "base64",      "string", "dateTime"};

/// What the database says about one leaf, as numbers and texts.
class LeafView {
public:
    LeafView(Attached &place, uint32_t leaf) : database(place), key(leaf) {}

    int32_t type() {
        return tavDBMGetType(database.session(), key);
    }
    int32_t constraintType() {
        database.session()->errorCode = 0;
        return tavDBMGetConstraintType(database.session(), key);
    }
    bool isEnumeration() {
        return constraintType() == type() << TAVDB_ENUMERATION_SHIFT;
    }
    std::vector<long double> constraint() {
        return numbers(database.constraintData(key));
    }
    size_t elementCount() {
        return constraint().size();
    }
    std::string text(const std::string &bytes) {
        return bytes.substr(0, bytes.find('\0'));
    }
    long double number(const std::string &bytes) {
        return numbers(bytes).at(0);
    }
    std::string current() {
        return database.current(key);
    }
    std::string standard() {
        return database.standard(key);
    }
    std::string factory() {
        return database.factory(key);
    }

private:
    template <typename T>
    static std::vector<long double> unpack(const std::string &bytes) {
        std::vector<long double> all;
        for (size_t offset = 0; offset + sizeof(T) <= bytes.size(); offset += sizeof(T)) {
            T one{};
            std::memcpy(&one, bytes.data() + offset, sizeof one);
            all.push_back(static_cast<long double>(one));
        }
        return all;
    }
    std::vector<long double> numbers(const std::string &bytes) {
        switch (type()) {
            case TAVDB_TYPE_U8:
                return unpack<uint8_t>(bytes);
            case TAVDB_TYPE_U16:
                return unpack<uint16_t>(bytes);
            case TAVDB_TYPE_S32:
                return unpack<int32_t>(bytes);
            case TAVDB_TYPE_U32:
                return unpack<uint32_t>(bytes);
            case TAVDB_TYPE_S64:
                return unpack<int64_t>(bytes);
            case TAVDB_TYPE_U64:
                return unpack<uint64_t>(bytes);
            case TAVDB_TYPE_F64:
                return unpack<double>(bytes);
            default:
                return {};
        }
    }

    Attached &database;
    uint32_t key;
};

/// Compares parameters; counts what it compared, so that nothing passes by not being looked at.
class Comparison {
public:
    Comparison(const pugi::xml_document &document, Attached &place, std::set<std::string> refused)
        : database(place), refusedDefaults(std::move(refused)) {
        for (const auto &type : document.select_nodes("//dataType[@name]"))
            dataTypes[type.node().attribute("name").value()] = type.node();
    }

    void compare(const Parameter &parameter) {
        SCOPED_TRACE(parameter.source);
        const auto key = database.at(parameter.path);
        if (key == 0)
            return;
        LeafView leaf(database, key);
        const auto primitive = primitiveOf(parameter.syntax);
        const bool isList = parameter.syntax.child("list");
        const auto element = parameter.syntax.child(primitive.c_str());
        ASSERT_TRUE(kPrimitives.contains(primitive));
        if (isList || primitive == "hexBinary" || primitive == "base64" || primitive == "dateTime")
            expectText(leaf);
        else if (primitive == "boolean")
            expectBoolean(leaf);
        else if (primitive == "decimal")
            EXPECT_EQ(leaf.type(), TAVDB_TYPE_F64);
        else if (primitive == "string")
            compareString(parameter, leaf, element);
        else
            compareInteger(leaf, primitive, element);
        compareDefault(parameter, leaf, isList ? "list" : primitive, element);
        compared["parameters"]++;
    }

    std::map<std::string, size_t> compared;

private:
    std::string primitiveOf(const pugi::xml_node &syntax) const {
        for (const auto &child : syntax.children())
            if (kPrimitives.contains(child.name()))
                return child.name();
        return primitiveOfType(syntax.child("dataType"), "ref");
    }

    std::string primitiveOfType(const pugi::xml_node &use, const char *attribute) const {
        auto name = std::string(use.attribute(attribute).value());
        if (name.empty())
            name = use.attribute("base").value();
        for (size_t steps = 0; steps < 20 && dataTypes.contains(name); steps++) {
            const auto type = dataTypes.at(name);
            for (const auto &child : type.children())
                if (kPrimitives.contains(child.name()))
                    return child.name();
            name = type.attribute("base").value();
        }
        return kPrimitives.contains(name) ? name : "";
    }

    void expectText(LeafView &leaf) {
        EXPECT_EQ(leaf.type(), TAVDB_TYPE_TEXT);
        EXPECT_EQ(leaf.constraintType(), 0);
        compared["texts"]++;
    }

    void expectBoolean(LeafView &leaf) {
        EXPECT_EQ(leaf.type(), TAVDB_TYPE_U8);
        EXPECT_TRUE(leaf.isEnumeration());
        EXPECT_EQ(leaf.constraint(), (std::vector<long double>{0, 1}));
        compared["booleans"]++;
    }

    /// The listed values of a string; empty when a data type has a say in it.
    static std::vector<std::string> listedValues(const pugi::xml_node &element) {
        std::vector<std::string> values;
        for (const auto &value : element.children("enumeration"))
            values.push_back(value.attribute("value").value());
        return values;
    }

    void compareString(const Parameter &parameter, LeafView &leaf, const pugi::xml_node &element) {
        if (parameter.syntax.child("dataType")) {
            EXPECT_TRUE(leaf.type() == TAVDB_TYPE_TEXT || leaf.isEnumeration());
            return;
        }
        const auto values = listedValues(element);
        if (values.empty()) {
            expectText(leaf);
            return;
        }
        EXPECT_EQ(leaf.type(), values.size() > 256 ? TAVDB_TYPE_U16 : TAVDB_TYPE_U8);
        EXPECT_TRUE(leaf.isEnumeration());
        EXPECT_EQ(leaf.elementCount(), values.size());
        compared["enumerations"]++;
    }

    void compareInteger(LeafView &leaf, const std::string &primitive, const pugi::xml_node &element) {
        const auto &number = kIntegers.at(primitive);
        EXPECT_EQ(leaf.type(), number.code);
        const auto ranges = element.children("range");
        const auto count = std::distance(ranges.begin(), ranges.end());
        if (!element)
            return;
        if (count == 0) {
            EXPECT_EQ(leaf.constraintType(), 0);
        } else if (count == 1) {
            const auto range = element.child("range");
            const auto bound = [&](const char *name, long double missing) {
                const auto attribute = range.attribute(name);
                return attribute ? std::stold(attribute.value()) : missing;
            };
            const std::vector<long double> wanted = {bound("minInclusive", number.minimum),
                                                     bound("maxInclusive", number.maximum), bound("step", 0)};
            const bool isWholeType = wanted == std::vector<long double>{number.minimum, number.maximum, 0};
            EXPECT_EQ(leaf.constraintType(), isWholeType ? 0 : number.code);
            if (leaf.constraintType() == 0)
                return;
            EXPECT_EQ(leaf.constraint(), wanted);
            compared["ranges"]++;
        }
    }

    void compareDefault(const Parameter &parameter, LeafView &leaf, const std::string &primitive,
                        const pugi::xml_node &element) {
        const auto given = parameter.syntax.child("default");
        const std::string kind = given.attribute("type").value();
        if (!given || (kind != "factory" && kind != "object") || refusedDefaults.contains(parameter.source))
            return;
        const std::string wanted = given.attribute("value").value();
        const auto bytes = kind == "factory" ? leaf.factory() : leaf.standard();
        EXPECT_EQ(leaf.current(), bytes) << "a tier that is left out takes the one below it";
        if (leaf.type() == TAVDB_TYPE_TEXT) {
            EXPECT_EQ(leaf.text(bytes), wanted);
        } else if (const auto number = numberOf(primitive, element, wanted)) {
            EXPECT_EQ(leaf.number(bytes), *number);
        }
        compared["defaults"]++;
    }

    /// Nothing when a data type lists the values.
    static std::optional<long double> numberOf(const std::string &primitive, const pugi::xml_node &element,
                                               const std::string &text) {
        if (primitive == "boolean")
            return text == "true" || text == "1" ? 1 : 0;
        if (primitive != "string")
            return std::stold(text);
        return element ? std::optional(indexOf(listedValues(element), text)) : std::nullopt;
    }

    static long double indexOf(const std::vector<std::string> &values, const std::string &wanted) {
        const auto found = std::find(values.begin(), values.end(), wanted);
        EXPECT_NE(found, values.end()) << wanted;
        return static_cast<long double>(found - values.begin());
    }

    Attached &database;
    std::map<std::string, pugi::xml_node> dataTypes;
    std::set<std::string> refusedDefaults;
};

std::set<std::string> refusedDefaultsOf(const Report &report) {
    std::set<std::string> sources;
    for (const auto &line : report.lines())
        if (const auto place = line.find(": default-refused: "); place != std::string::npos)
            sources.insert(line.substr(0, place));
    return sources;
}

class RealBuild : public testing::TestWithParam<const char *> {
protected:
    void SetUp() override {
        const std::string folder = TAVDB_DATA_DIR;
        if (folder.empty())
            GTEST_SKIP() << "no folder with published data models is configured";
        path = folder + "/tr/" + GetParam();
        if (!std::filesystem::exists(path))
            GTEST_SKIP() << path << " is not there";
        ASSERT_TRUE(document.load_file(path.c_str()));
    }

    std::string path;
    pugi::xml_document document;
    tavdb_test::TestPlace place;
};

TEST_P(RealBuild, LeavesAreWhatTheModelSays) {
    ReadOptions options;
    options.textSizeBytesMax = 1024;
    const auto description = readDescription(path, options);
    ASSERT_TRUE(description.ok());
    auto parameters = readParameters(document);
    const auto &report = description.report;
    EXPECT_EQ(report.parameters(), parameters.size()) << "every parameter is accounted for";
    EXPECT_EQ(report.expressedFully() + report.expressedWithLosses() + report.notExpressed(), parameters.size());
    const auto built = buildDatabase(description.model, place / "db", {});
    ASSERT_TRUE(built) << built.error.sentence;
    std::mt19937 random(tavdb_test::randomSeed());
    std::shuffle(parameters.begin(), parameters.end(), random);
    parameters.resize(std::min(parameters.size(), kSample));
    Attached database(place / "db");
    Comparison comparison(document, database, refusedDefaultsOf(report));
    for (const auto &parameter : parameters)
        comparison.compare(parameter);
    for (const auto &[what, count] : comparison.compared)
        std::cout << count << " " << what << " compared\n";
    EXPECT_EQ(comparison.compared["parameters"], parameters.size());
    for (const auto *what : {"texts", "booleans", "enumerations", "defaults"})
        EXPECT_GT(comparison.compared[what], 0U) << what;
}

INSTANTIATE_TEST_SUITE_P(Published, RealBuild,
                         testing::Values("tr-140-1-3-1-cwmp-full.xml", "tr-181-2-17-0-cwmp-full.xml",
                                         "tr-196-2-1-2-cwmp-full.xml"),
                         [](const auto &model) { return std::string(model.param).substr(0, 6).erase(2, 1); });

}  // namespace
}  // namespace tavdb::image
