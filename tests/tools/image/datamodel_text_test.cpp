// SPDX-License-Identifier: Apache-2.0
// Descriptions of a data model as plain text.
#include "image/datamodel_text.h"

#include <gtest/gtest.h>

namespace tavdb::image {
namespace {

std::string clean(const std::string &raw) {
    return TextCleaner().clean(raw, {"Line", "Enable", "seconds", "A ''good'' {{param}}."});
}

TEST(DataModelText, SpaceIsFoldedAndEmphasisTakenAway) {
    EXPECT_EQ(clean("\n   One\n   ''two''  '''three'''\n"), "One two three");
    EXPECT_EQ(clean("the CPE's own"), "the CPE's own");
}

TEST(DataModelText, TemplatesBecomeWords) {
    EXPECT_EQ(clean("{{param|#.Status}} is {{true}} or {{false}}"), "Status is true or false");
    EXPECT_EQ(clean("{{param}} of {{object}} in {{units}}"), "Enable of Line in seconds");
    EXPECT_EQ(clean("{{object|##.Hosts.Host}}"), "Hosts.Host");
    EXPECT_EQ(clean("{{enum|Up}} or {{value|Down}} or {{empty}}"), "Up or Down or an empty string");
    EXPECT_EQ(clean("see {{bibref|TR-069|Annex N}}"), "see TR-069 Annex N");
    EXPECT_EQ(clean("{{numentries}}"), "The number of entries.");
    EXPECT_EQ(clean("{{list}} {{list|of names}}"), "Comma-separated list. Comma-separated list of names.");
    EXPECT_EQ(clean("{{deprecated|2.16|because of {{object|New}}}}"), "Deprecated since 2.16 because of New.");
    EXPECT_EQ(clean("{{datatype|expand}}"), "A good Enable.");
    EXPECT_EQ(clean("{{noreference}}x{{unheard|of|this}}"), "xof this");
}

TEST(DataModelText, SingleBracesMayStandInsideTemplates) {
    EXPECT_EQ(clean("{{list|of {{object|##.S.{i}}} and {{object|A.{i}.B}}}} x"),
              "Comma-separated list of S.{i} and A.{i}.B. x");
    EXPECT_EQ(clean("{i} {{param|L.{i}.P|x}}"), "{i} L.{i}.P");
    EXPECT_EQ(clean("{{object ##.S}}"), "object ##.S") << "a bar was forgotten";
}

TEST(DataModelText, StoredTemplatesAreExpanded) {
    TextCleaner cleaner;
    cleaner.addTemplate("A", "a {{template|B}}");
    cleaner.addTemplate("B", "b {{param}}");
    EXPECT_EQ(cleaner.clean("{{template|A}}{{template|C}}", {{}, "P", {}, {}}), "a b P");
}

TEST(DataModelText, WhatIsNotClosedStaysAsItIs) {
    EXPECT_EQ(clean("a {{param|b"), "a {{param|b");
    EXPECT_EQ(clean("{{"), "{{");
    EXPECT_EQ(clean("}} {{true}}"), "}} true");
    EXPECT_EQ(clean("{{{{true}}"), "{{{{true}}");
}

TEST(DataModelText, TemplatesThatReferToEachOtherEnd) {
    TextCleaner cleaner;
    std::string many;
    for (int i = 0; i < 100; i++)
        many += "{{template|A}}{{template|B}}";
    cleaner.addTemplate("A", many);
    cleaner.addTemplate("B", many + "x");
    EXPECT_LE(cleaner.clean(many, {}).size(), 20000U);
}

TEST(DataModelText, LongTextIsCutBetweenCharacters) {
    std::string raw = "x";
    for (int i = 0; i < 20000; i++)
        raw += "\xC3\xA9";
    const auto text = clean(raw);
    EXPECT_EQ(text.size(), 16383U + 3U);
    EXPECT_TRUE(text.ends_with("\xC3\xA9..."));
}

TEST(DataModelText, ManyOpenBracesCostLittle) {
    const std::string braces(2000000, '{');
    EXPECT_EQ(clean(braces).size(), 16384U + 3U);
}

}  // namespace
}  // namespace tavdb::image
