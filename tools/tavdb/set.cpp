// SPDX-License-Identifier: Apache-2.0
// tavdb set: writes values of leaves, each one for itself and under the lock of
// its component. What the arguments mean is settled before the database is opened.
#include <unistd.h>

#include "assignment.h"
#include "command.h"
#include "component_lock.h"
#include "image/files.h"
#include "image/text_util.h"
#include "image/value_text.h"
#include "lock_set.h"

namespace tavdb::command {

namespace {

constexpr size_t kInputBytesMax = size_t{64} * 1024 * 1024;

struct SetOptions {
    std::vector<std::string> arguments;
    TierFlags tier;
    TimeoutOption timeout;
    bool noLock = false;
};

/// What to write, and where it was said.
struct Order {
    std::string subject;
    image::Outcome<Assignment> assignment;
};

/// Blank lines and lines that begin with "#" say nothing.
std::vector<Order> readOrders(std::string_view text) {
    std::vector<Order> orders;
    for (size_t number = 1; !text.empty(); number++) {
        const auto end = std::min(text.find('\n'), text.size());
        auto line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (line.find_first_not_of(" \t") != std::string_view::npos && !line.starts_with('#'))
            orders.push_back({"standard input:" + std::to_string(number), parseAssignment(line)});
    }
    return orders;
}

class Setter {
public:
    Setter(const SetOptions &given, const Common &shared, Console &place)
        : options(given), common(shared), console(place) {}

    void run() {
        const auto orders = understand(options.arguments);
        if (!orders)
            return;
        auto opened = openDatabase(common, console);
        if (!opened)
            return;
        for (const auto &order : *orders)
            if (!isEnding())
                carryOut(*opened, order);
    }

private:
    std::optional<std::vector<Order>> understand(const std::vector<std::string> &arguments) {
        if (arguments.empty()) {
            console.report("set", {image::FaultKind::usage, "PATH VALUE, PATH=VALUE ... or - is expected"});
            return std::nullopt;
        }
        if (arguments.size() == 1 && arguments[0] == "-")
            return readInput();
        if (arguments.size() == 2 && arguments[0].find('=') == std::string::npos)
            return std::vector<Order>{{arguments[0], image::Outcome<Assignment>::good({arguments[0], arguments[1]})}};
        return readAssignments(arguments);
    }

    std::optional<std::vector<Order>> readInput() {
        const auto text = image::readFile("/dev/stdin", kInputBytesMax);
        if (text)
            return readOrders(*text.value);
        console.report("standard input", text.error);
        return std::nullopt;
    }

    /// An argument that is no assignment is a mistake in the call: nothing is written then.
    std::optional<std::vector<Order>> readAssignments(const std::vector<std::string> &arguments) {
        std::vector<Order> orders;
        bool isGood = true;
        for (const auto &argument : arguments) {
            orders.push_back({argument, parseAssignment(argument)});
            if (orders.back().assignment)
                continue;
            console.report(argument, {image::FaultKind::usage, "is no PATH=VALUE: " + orders.back().assignment.error});
            isGood = false;
        }
        return isGood ? std::optional(std::move(orders)) : std::nullopt;
    }

    void carryOut(OpenedDatabase &opened, const Order &order) {
        if (!order.assignment) {
            console.report(order.subject, {image::FaultKind::usage, "is no PATH='VALUE': " + order.assignment.error});
            return;
        }
        const auto &[path, value] = *order.assignment.value;
        if (const auto fault = write(opened, path, value))
            console.report(path, *fault);
    }

    image::Status write(OpenedDatabase &opened, const std::string &path, const std::string &text) const {
        const auto stored = openLeaf(opened, path);
        if (!stored)
            return stored.error;
        if (stored.value->constraintFault)
            return stored.value->constraintFault;
        const auto value = image::parseForLeaf(stored.value->leaf, text);
        if (!value)
            return image::Fault{image::FaultKind::refused, value.error};
        const auto tier = options.tier.tier();
        if (options.noLock)
            return writeTier(*opened.database, *stored.value, tier, *value.value);
        const ComponentLock lock(*opened.database, stored.value->key, options.timeout.ms());
        return lock.fault() ? lock.fault() : writeTier(*opened.database, *stored.value, tier, *value.value);
    }

    const SetOptions &options;
    const Common &common;
    Console &console;
};

}  // namespace

void addSet(Declarations &place) {
    auto options = std::make_shared<SetOptions>();
    auto &command = place.add("set", "Write the values of leaves");
    command.footer =
        "tavdb set [OPTIONS] PATH VALUE      write one value\n"
        "tavdb set [OPTIONS] PATH=VALUE ...  write several\n"
        "tavdb set [OPTIONS] -               the same from lines of standard input\n"
        "Options stand in front of the paths.";
    // A value may begin with "-", so nothing behind the first path is an option.
    command.optionsStandFirst = true;
    command.add("PATH", &options->arguments, "a leaf; its value stands behind it, or behind a =");
    options->tier.add(command, false);
    options->timeout.add(command);
    command.add("--no-lock", &options->noLock, "write although the component is locked");
    command.action = [options](const Common &common, Console &console) { Setter(*options, common, console).run(); };
}

}  // namespace tavdb::command
