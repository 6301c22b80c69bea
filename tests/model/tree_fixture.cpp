// SPDX-License-Identifier: Apache-2.0
#include "model/tree_fixture.h"

#include <algorithm>

namespace tavdb_test {

namespace {

constexpr uint32_t kOldCode = 0x6B;
constexpr uint32_t kOldDetail = 0x7C;

/// The word up to the next blank or parenthesis.
std::string wordAt(const std::string &text, size_t &at) {
    const size_t from = at;
    while (at < text.size() && text[at] != ' ' && text[at] != '(' && text[at] != ')')
        ++at;
    return text.substr(from, at - from);
}

/// The text inside the parenthesis that opens at `at`, which then stands behind its end.
std::string groupAt(const std::string &text, size_t &at) {
    const size_t from = ++at;
    for (int depth = 1; depth > 0 && at < text.size(); ++at)
        depth += text[at] == '(' ? 1 : (text[at] == ')' ? -1 : 0);
    return text.substr(from, at - 1 - from);
}

bool isTransferEvent(const Event &event) {
    return event.operation == Operation::mediaRead || event.operation == Operation::mediaWrite;
}

/// "component" of "component.med"
std::string shortHint(const std::string &hint) {
    return hint.substr(0, hint.find('.'));
}

/// Whether a transfer moves a word or a block's head.
bool isFileList(const std::string &line) {
    return line.find(" 4@") != std::string::npos || line.find(" 8@") != std::string::npos;
}

}  // namespace

Bytes bytes(const std::string &text) {
    return {text.begin(), text.end()};
}

Bytes textBytes(const std::string &text) {
    return {text.c_str(), text.c_str() + text.size() + 1};
}

std::string textOfBytes(const Bytes &content) {
    return {content.begin(), content.end()};
}

NoMedia::NoMedia() : count_(media_table.count) {
    media_table.count = 1;
}

NoMedia::~NoMedia() {
    media_table.count = count_;
}

void TreeFixture::SetUp() {
    DatabaseFixture::SetUp();
    root = putRoot();
    label(root, "root");
    start();
    ASSERT_EQ(session.currentComponent, root);
}

uint32_t TreeFixture::takeSlot(const std::string &hint, uint32_t size) {
    auto header = fakeMedia().recordAt<tavDBMMediumHeader>(hint, 0);
    auto block = fakeMedia().recordAt<tavDBMFreeBlock>(hint, header.firstFree);
    const uint32_t slot = header.firstFree;
    EXPECT_GE(block.size, size + sizeof block) << "no room for the test's records on " << hint;
    header.firstFree += size;
    block.size -= size;
    fakeMedia().setRecordAt(hint, 0, header);
    fakeMedia().setRecordAt(hint, header.firstFree, block);
    return slot;
}

uint32_t TreeFixture::putComponent(const std::string &text, uint32_t parent, int32_t kind, const LeafKeys &keys) {
    const bool isNode = kind == TAVDB_KIND_NODE;
    tavDBMLeaf record{.component = {.key = 0, .name = 0, .reserved = 0, .parent = parent, .next = 0, .kind = kind},
                      .currentValue = keys.currentValue,
                      .defaultValue = keys.defaultValue,
                      .factoryValue = keys.factoryValue,
                      .hookId = keys.hookId};
    const uint32_t slot = takeSlot(kComponents, isNode ? sizeof(tavDBMNode) : sizeof(tavDBMLeaf));
    record.component.key = slot;
    Bytes content = bytesOf(record);
    if (isNode)
        content.resize(sizeof(tavDBMNode));
    fakeMedia().setBytesAt(kComponents, slot, content);
    uint32_t link = parent + static_cast<uint32_t>(offsetof(tavDBMNode, firstChild));
    while (fakeMedia().wordAt(kComponents, link) != 0)
        link = fakeMedia().wordAt(kComponents, link) + static_cast<uint32_t>(offsetof(tavDBMComponent, next));
    fakeMedia().setWordAt(kComponents, link, slot);
    label(slot, text);
    if (namesGiven_)
        nameIt(slot, text);
    return slot;
}

uint32_t TreeFixture::putNode(const std::string &text, uint32_t parent) {
    return putComponent(text, parent, TAVDB_KIND_NODE, {});
}

uint32_t TreeFixture::putLeaf(const std::string &text, uint32_t parent, const LeafKeys &keys) {
    return putComponent(text, parent, TAVDB_KIND_LEAF, keys);
}

void TreeFixture::build(const std::string &text, uint32_t parent) {
    for (size_t at = 0; at < text.size();) {
        const std::string word = wordAt(text, at);
        if (at < text.size() && text[at] == '(')
            build(groupAt(text, at), putNode(word, parent));
        else if (!word.empty())
            putLeaf(word, parent);
        else
            ++at;
    }
}

void TreeFixture::buildNamed(const std::string &text) {
    namesGiven_ = true;
    build(text);
    namesGiven_ = false;
}

uint32_t TreeFixture::putValue(const Bytes &data, int32_t type, uint32_t constraintKey) {
    const auto offset = static_cast<uint32_t>(fakeMedia().sizeOf(kData));
    fakeMedia().setBytesAt(kData, offset, data);
    const uint32_t slot = takeSlot(kValues, sizeof(tavDBMValue));
    fakeMedia().setRecordAt(kValues, slot,
                            tavDBMValue{.key = slot,
                                        .type = type,
                                        .dataMedia = kDataMedia,
                                        .dataOffset = offset,
                                        .length = static_cast<int32_t>(data.size()),
                                        .creationWord = 0,
                                        .constraintKey = constraintKey});
    return slot;
}

uint32_t TreeFixture::putString(const std::string &text) {
    const auto offset = static_cast<uint32_t>(fakeMedia().sizeOf(kTexts));
    fakeMedia().setBytesAt(kTexts, offset, textBytes(text));
    const uint32_t slot = takeSlot(kStrings, sizeof(tavDBMString));
    fakeMedia().setRecordAt(kStrings, slot,
                            tavDBMString{.key = slot,
                                         .textMedia = kTextMedia,
                                         .textOffset = offset,
                                         .textLength = static_cast<int32_t>(text.size() + 1)});
    return slot;
}

uint32_t TreeFixture::putRange(const tavDBMRangeS32 &range) {
    tavDBMRangeS32 record = range;
    record.key = takeSlot(kConstraints, sizeof record);
    record.type = TAVDB_TYPE_S32;
    fakeMedia().setRecordAt(kConstraints, record.key, record);
    return record.key;
}

void TreeFixture::nameIt(uint32_t componentKey, const std::string &text) {
    fakeMedia().setWordAt(kComponents, componentKey + offsetof(tavDBMComponent, name), putString(text));
}

void TreeFixture::setKeys(uint32_t leafKey, const LeafKeys &keys) {
    fakeMedia().setRecordAt(kComponents, leafKey + offsetof(tavDBMLeaf, currentValue), keys);
}

void TreeFixture::putReservedWords() {
    for (const auto &[componentKey, name] : labels_)
        fakeMedia().setWordAt(kComponents, componentKey + offsetof(tavDBMComponent, reserved), ~componentKey);
}

std::vector<std::string> TreeFixture::changedReservedWords() const {
    std::vector<std::string> changed;
    for (const auto &[componentKey, name] : labels_) {
        if (node(componentKey).component.reserved != ~componentKey)
            changed.push_back(name);
    }
    return changed;
}

uint32_t TreeFixture::key(const std::string &text) const {
    for (const auto &[componentKey, name] : labels_) {
        if (name == text)
            return componentKey;
    }
    ADD_FAILURE() << "no component has the label " << text;
    return 0;
}

std::string TreeFixture::labelOf(uint32_t componentKey) const {
    const auto found = labels_.find(componentKey);
    return found != labels_.end() ? found->second : "?" + std::to_string(componentKey);
}

std::string TreeFixture::shape(uint32_t nodeKey) const {
    std::vector<uint32_t> path = {nodeKey};
    std::string text;
    showChain(node(nodeKey).firstChild, path, text);
    return text;
}

void TreeFixture::showChain(uint32_t first, std::vector<uint32_t> &path, std::string &text) const {
    std::vector<uint32_t> chain;
    for (uint32_t at = first; at != 0; at = node(at).component.next) {
        text += text.empty() || text.back() == '(' ? "" : " ";
        const auto isAt = [at](uint32_t other) { return other == at; };
        if (std::any_of(chain.begin(), chain.end(), isAt) || std::any_of(path.begin(), path.end(), isAt)) {
            text += '^' + labelOf(at);
            return;
        }
        chain.push_back(at);
        text += labelOf(at);
        if (node(at).component.kind == TAVDB_KIND_LEAF)
            continue;
        path.push_back(at);
        text += '(';
        showChain(node(at).firstChild, path, text);
        text += ')';
        path.pop_back();
    }
}

tavDBMNode TreeFixture::node(uint32_t componentKey) {
    return fakeMedia().recordAt<tavDBMNode>(kComponents, componentKey);
}

tavDBMLeaf TreeFixture::leaf(uint32_t componentKey) {
    return fakeMedia().recordAt<tavDBMLeaf>(kComponents, componentKey);
}

tavDBMValue TreeFixture::value(uint32_t valueKey) {
    return fakeMedia().recordAt<tavDBMValue>(kValues, valueKey);
}

Bytes TreeFixture::dataOf(uint32_t valueKey) {
    const tavDBMValue record = value(valueKey);
    return fakeMedia().bytesAt(kMediaHints[record.dataMedia - 1], record.dataOffset,
                               static_cast<size_t>(record.length));
}

std::string TreeFixture::freeBlocks(const std::string &hint) {
    std::string text;
    uint32_t at = fakeMedia().recordAt<tavDBMMediumHeader>(hint, 0).firstFree;
    for (int steps = 0; at != 0 && steps < 1000; ++steps) {
        const auto block = fakeMedia().recordAt<tavDBMFreeBlock>(hint, at);
        text += (text.empty() ? "" : " ") + std::to_string(at) + '+' + std::to_string(block.size);
        at = block.next;
    }
    return text;
}

std::string TreeFixture::hexAt(const std::string &hint, uint32_t offset, uint32_t length) {
    return hexText(fakeMedia().bytesAt(hint, offset, length));
}

std::vector<std::string> TreeFixture::transfers() {
    const std::vector<Event> events = eventLog().events(Category::media);
    std::vector<std::string> lines;
    for (size_t at = 0; at < events.size(); at += 3) {
        const bool stepsAreThere = at + 2 < events.size() && events[at].operation == Operation::mediaOpen &&
                                   isTransferEvent(events[at + 1]) && events[at + 2].operation == Operation::mediaClose;
        if (!stepsAreThere) {
            ADD_FAILURE() << "not open, one transfer and close:\n" << eventLog().text(Category::media);
            return lines;
        }
        lines.push_back(shortHint(events[at + 1].subject) + ' ' + textOf(events[at + 1]));
    }
    return lines;
}

std::vector<std::string> TreeFixture::recordTransfers() {
    std::vector<std::string> lines = transfers();
    std::erase_if(lines, isFileList);
    return lines;
}

size_t TreeFixture::accesses() {
    return eventLog().count(Operation::mediaOpen);
}

testing::AssertionResult TreeFixture::recorded(uint32_t code, uint32_t detail) const {
    if (session.errorCode == code && session.errorDetail == detail)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "the session holds " << session.errorCode << " (" << session.errorDetail
                                       << "), expected " << code << " (" << detail << ")";
}

void TreeFixture::putOldError() {
    session.errorCode = kOldCode;
    session.errorDetail = kOldDetail;
}

testing::AssertionResult TreeFixture::oldErrorIsThere() const {
    return recorded(kOldCode, kOldDetail);
}

void TreeFixture::clearTraces() {
    eventLog().clear();
    fakeTrace().clear();
}

void TreeFixture::forEachFault(const std::function<void()> &run) {
    const MediaImage image = fakeMedia().snapshotAll();
    const size_t blocks = fakeMemory().liveBlocks();
    const FaultRun afresh = [&](uint64_t index) {
        if (HasFailure())
            return;  // the first operation that is not survived says enough
        SCOPED_TRACE("operation " + std::to_string(index) + " fails");
        fakeMedia().restoreAll(image);
        session.errorCode = 0;
        session.errorDetail = 0;
        clearTraces();
        run();
        EXPECT_EQ(fakeMemory().liveBlocks(), blocks) << fakeMemory().liveText();
        EXPECT_THAT(fakeMedia().openDescriptors(), testing::IsEmpty());
    };
    const uint64_t operations = forEachFailingOperation(afresh);
    EXPECT_TRUE(operations > 0 || HasFailure()) << "the run has no operation that could fail";
    forEachFailingOperation(afresh, shortBy(1));
}

}  // namespace tavdb_test
