// SPDX-License-Identifier: Apache-2.0
// tavdb debug: the library's diagnostic dump of this process, which is attached to
// the database. The library prints it through its trace, so the trace is led into a
// file in memory for the time of this command.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "command.h"
#include "image/files.h"
#include "view.h"

namespace tavdb::command {

namespace {

/// Modules print at any level but this.
constexpr int32_t kLevelWithoutOutput = 98;

/// To be made before the library's first trace line, which is when the platform
/// reads where to write.
class TraceFile {
public:
    explicit TraceFile(int32_t level) : file(memfd_create("tavdb_trace", MFD_CLOEXEC)) {
        setenv("TAVDB_TRACE", std::to_string(level).c_str(), 1);
        setenv("TAVDB_TRACE_TO", ("/proc/self/fd/" + std::to_string(file.get())).c_str(), 1);
    }
    /// Bytes written so far.
    off_t size() const {
        return file.isOpen() ? lseek(file.get(), 0, SEEK_END) : 0;
    }
    std::string contentFrom(off_t begin) const {
        const auto bytes = static_cast<size_t>(std::max<off_t>(size() - begin, 0));
        return image::readPart(file.get(), bytes, static_cast<uint64_t>(begin)).value.value_or("");
    }

private:
    image::Descriptor file;
};

void debug(int32_t level, const Common &common, Console &console) {
    const TraceFile trace(level);
    auto opened = openDatabase(common, console);
    if (!opened)
        return;
    uint32_t debugSize = 0;
    uint32_t ramSize = 0;
    const auto begin = trace.size();
    dbs_me_db_debug(level, &debugSize, &ramSize);
    const auto text = trace.contentFrom(begin);
    if (text.empty() && level != kLevelWithoutOutput)
        console.report("debug", {image::FaultKind::failed, "the platform's trace cannot be read"});
    if (!common.json) {
        console.print(text);
        return;
    }
    auto lines = Json::array();
    for (size_t at = 0; at < text.size();) {
        const auto end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    console.print(
        dumpJson({{"level", level}, {"debugSize", debugSize}, {"ramSize", ramSize}, {"lines", std::move(lines)}}));
}

}  // namespace

void addDebug(Declarations &place) {
    auto level = std::make_shared<int32_t>(99);
    auto &command = place.add("debug", "Print the library's diagnostic dump of this process");
    command.add("--level N", level.get(), "99: statics and addresses; 5: sizes as well; 98: nothing",
                {.isNotNegative = true, .standard = std::to_string(*level)});
    command.action = [level](const Common &common, Console &console) { debug(*level, common, console); };
}

}  // namespace tavdb::command
