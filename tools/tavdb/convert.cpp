// SPDX-License-Identifier: Apache-2.0
// tavdb convert: a copy of a database directory for a machine of the other byte
// order. The source is read and never changed; it need not be one that this machine
// could use.
#include "image/convert.h"

#include "command.h"
#include "ending_signals.h"
#include "image/text_util.h"

namespace tavdb::command {

namespace {

struct ConvertArguments {
    std::string source;
    std::string directory;
    OrderOption order;
    bool replace = false;
};

void convert(const ConvertArguments &arguments, Console &console) {
    const EndingSignals signals(EndingSignals::Second::waits);
    auto copy = image::DatabaseCopy::read(arguments.source);
    if (!copy) {
        console.report(arguments.source, copy.error);
        return;
    }
    const auto before = copy.value->order();
    const auto order = arguments.order.wanted();
    const auto remarks = copy.value->convert(order);
    const auto written = copy.value->write(arguments.directory, arguments.replace, isEnding);
    if (!written) {
        console.report(arguments.directory, written.error);
        return;
    }
    for (const auto &remark : remarks)
        console.remark(arguments.source, remark);
    for (const auto &name : copy.value->leftOut())
        console.remark(arguments.source, image::quote(name) + " is no part of a database and was not copied");
    const auto counts = copy.value->counts();
    console.remark(arguments.directory, std::string(before == order ? "copied " : "converted ") +
                                            std::to_string(counts.nodes) + " nodes, " + std::to_string(counts.leaves) +
                                            " leaves, " + std::to_string(copy.value->imageBytes()) + " bytes, " +
                                            image::nameOf(order));
}

}  // namespace

void addConvert(Declarations &place) {
    auto arguments = std::make_shared<ConvertArguments>();
    auto &command = place.add("convert", "Copy a database directory into another byte order");
    command.add("DIR", &arguments->source, "the database directory to copy", {.isRequired = true});
    command.add("-o,--output DIR", &arguments->directory, "the directory to make", {.isRequired = true});
    arguments->order.add(command);
    command.add("--replace", &arguments->replace, "replace a database directory that is there");
    command.action = [arguments](const Common &, Console &console) { convert(*arguments, console); };
}

}  // namespace tavdb::command
