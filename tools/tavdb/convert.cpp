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
    image::ByteOrder order = image::nativeOrder();
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
    const auto remarks = copy.value->convert(arguments.order);
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
    console.remark(arguments.directory, std::string(before == arguments.order ? "copied " : "converted ") +
                                            std::to_string(counts.nodes) + " nodes, " + std::to_string(counts.leaves) +
                                            " leaves, " + std::to_string(copy.value->imageBytes()) + " bytes, " +
                                            image::nameOf(arguments.order));
}

}  // namespace

void addConvert(CLI::App &app, Action &action) {
    auto arguments = std::make_shared<ConvertArguments>();
    auto *command = app.add_subcommand("convert", "Copy a database directory into another byte order");
    command->add_option("DIR", arguments->source, "the database directory to copy")->required();
    command->add_option("-o,--output", arguments->directory, "the directory to make")->required()->type_name("DIR");
    addByteOrder(*command, arguments->order);
    command->add_flag("--replace", arguments->replace, "replace a database directory that is there");
    command->callback([arguments, &action] {
        action = [arguments](const Common &, Console &console) { convert(*arguments, console); };
    });
}

}  // namespace tavdb::command
