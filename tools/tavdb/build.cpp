// SPDX-License-Identifier: Apache-2.0
// tavdb build: from a description to a database directory. Errors of the
// description come with their places, all in one run; the work itself is done by
// the builder, which either finishes or leaves nothing.
#include <chrono>

#include "command.h"
#include "ending_signals.h"
#include "image/builder.h"
#include "image/description.h"

namespace tavdb::command {

namespace {

constexpr uint32_t kSlackPercentMax = 10000;

struct BuildArguments {
    std::string file;
    std::string directory;
    image::ReadOptions reading;
    image::BuildOptions building;
    OrderOption order;
    std::string media = "memory";
    bool report = false;
};

class Builder {
public:
    Builder(const BuildArguments &given, Console &place) : arguments(given), console(place) {}

    void run() {
        const auto started = std::chrono::steady_clock::now();
        const auto description = image::readDescription(arguments.file, arguments.reading);
        if (!description.ok()) {
            reportErrors(description.errors);
            return;
        }
        const auto summary = build(description.model);
        if (!summary) {
            console.report(arguments.directory, summary.error);
            return;
        }
        if (arguments.report)
            printReport(description.report);
        const auto took = std::chrono::steady_clock::now() - started;
        const auto tookMs = std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
        const auto &counts = summary.value->counts;
        const auto order = arguments.building.order;
        const std::string note = order == image::nativeOrder() ? "" : std::string(", ") + image::nameOf(order) + ",";
        console.remark(arguments.directory, "built " + std::to_string(counts.nodes) + " nodes, " +
                                                std::to_string(counts.leaves) + " leaves, " +
                                                std::to_string(summary.value->imageBytes) + " bytes" + note + " in " +
                                                std::to_string(tookMs) + " ms");
    }

private:
    image::Result<image::BuildSummary> build(const image::Model &model) const {
        const EndingSignals signals(EndingSignals::Second::waits);
        return image::buildDatabase(model, arguments.directory, arguments.building);
    }

    /// The exit code is that of all errors together, so it goes with the first line.
    void reportErrors(const std::vector<image::Diagnostic> &errors) {
        const auto kind = image::kindOf(errors);
        for (const auto &error : errors)
            console.reportAt(image::formatDiagnostic(arguments.file, error), kind);
    }

    void printReport(const image::Report &report) {
        console.print(formatSummary(report));
        for (const auto &line : report.lines())
            console.print(line + "\n");
    }

    const BuildArguments &arguments;
    Console &console;
};

image::MediaKind mediaKindOf(const std::string &name) {
    using image::MediaKind;
    return name == "file" ? MediaKind::file : name == "message" ? MediaKind::message : MediaKind::memory;
}

}  // namespace

void addBuild(Declarations &place) {
    auto arguments = std::make_shared<BuildArguments>();
    auto &command = place.add("build", "Build a database directory from a description");
    auto &building = arguments->building;
    auto &reading = arguments->reading;
    building.interrupted = isEnding;
    command.add("FILE", &arguments->file, "the description, YAML or XML", {.isRequired = true});
    command.add("-o,--output DIR", &arguments->directory, "the directory to make", {.isRequired = true});
    command.add("--media KIND", &arguments->media,
                "how the images are used: memory (mapped), file, or message (of serve-media)",
                {.values = {"memory", "file", "message"}});
    arguments->order.add(command);
    command.add("--slack PERCENT", &building.slackPercent, "free space for records, in percent of what is used",
                {.range = {{0, kSlackPercentMax}}, .standard = std::to_string(building.slackPercent)});
    command.add("--instances N", &reading.instances, "nodes for each {i} of a data model",
                {.range = {{1, 1000000}}, .standard = std::to_string(reading.instances)});
    command.add("--text-size N", &reading.textSizeBytes, "bytes of texts whose length a data model does not state",
                {.range = {{1, image::kLengthBytesMax - 1}}, .standard = std::to_string(reading.textSizeBytes)});
    command.add("--text-size-max N", &reading.textSizeBytesMax, "cut longer texts of a data model to this",
                {.range = {{1, image::kLengthBytesMax - 1}}, .standard = std::to_string(reading.textSizeBytesMax)});
    command.add("--report", &arguments->report, "print what the database cannot hold of the description");
    command.add("--header FILE", &building.headerFile, "also write a C header with keys and labels");
    command.add("--hooks FILE", &building.hookFile, "copy this hook file into the directory");
    command.add("--replace", &building.replace, "replace a database directory that is there");
    command.action = [arguments](const Common &, Console &console) {
        arguments->building.media = mediaKindOf(arguments->media);
        arguments->building.order = arguments->order.wanted();
        Builder(*arguments, console).run();
    };
}

}  // namespace tavdb::command
