// SPDX-License-Identifier: Apache-2.0
// The completion script for fish: a few functions that read the line, which are the
// same whatever the commands are, and one "complete" line for each option and operand.
#include "completion.h"

#include "image/text_util.h"

namespace tavdb::command {

namespace {

constexpr const char *kFunctions = R"script(# fish completion for @name@, made by "@name@ completion fish"

# Prints what stands in front of the word that is completed: the command or "-", the
# number of the operand that comes next, then the database that -d names.
function __fish_@name@_state
    set -l words (commandline -opc)
    set -l valued @valued@
    set -l command -
    set -l operand 1
    set -l option ''
    set -l only ''
    set -l database
    for word in $words[2..-1]
        if test -n "$option"
            contains -- $option -d --directory; and set database $word
            set option ''
        else if test -z "$only"; and test "$word" = --
            set only yes
        else if test -z "$only"; and string match -qr '^(-d.|--directory=)' -- $word
            set database (string replace -r '^(-d|--directory=)' '' -- $word)
        else if test -z "$only"; and string match -qr '^-.' -- $word
            contains -- "$command $word" $valued; or contains -- "- $word" $valued; and set option $word
        else if test $command = -
            set command $word
        else
            set operand (math $operand + 1)
            contains -- $command @first@; and set only yes
        end
    end
    printf '%s\n' $command $operand $database
end

function __fish_@name@_needs_command
    set -l state (__fish_@name@_state)
    test $state[1] = -
end

# __fish_@name@_in COMMAND [OPERAND [more]]
function __fish_@name@_in
    set -l state (__fish_@name@_state)
    test $state[1] = $argv[1]; or return 1
    set -q argv[2]; or return 0
    test $state[2] -eq $argv[2]; and return 0
    set -q argv[3]; and test $state[2] -gt $argv[2]
end

# The children of the node that the word names so far.
function __fish_@name@_components
    set -l state (__fish_@name@_state)
    set -l database
    set -q state[3]; and set database -d (string replace -r '^~/' $HOME/ -- $state[3])
    set -l word (commandline -ct | string unescape)
    set -l parent (string replace -r '[^/]*$' '' -- $word)
    test -n "$word"; or set parent /
    set -l start $parent
    test -n "$start"; or set start /
    for name in (@name@ $database --no-hooks list -- $start 2>/dev/null </dev/null)
        printf '%s\n' $parent$name
    end
end

complete -c @name@ -f
)script";

std::string inFishQuotes(const std::string &text) {
    return "'" + replaced(replaced(text, "\\", "\\\\"), "'", "\\'") + "'";
}

/// What follows "complete -c tavdb -n CONDITION" to complete one word.
std::string words(const Argument &argument, const Declarations &declarations) {
    switch (argument.kind) {
        case WordKind::component:
            return " -x -a '(__fish_" + declarations.name + "_components)'";
        case WordKind::file:
            return " -r -F";
        case WordKind::directory:
            return " -x -a '(__fish_complete_directories (commandline -ct))'";
        case WordKind::program:
            return " -x -a '(__fish_complete_command)'";
        case WordKind::command:
            return " -x -a '" + image::join(commandNames(declarations), " ") + "'";
        case WordKind::listed:
            return " -x -a '" + image::join(argument.rules.values, " ") + "'";
        case WordKind::other:
            break;
    }
    return " -x";
}

std::string optionLine(const std::string &condition, const Argument &option, const Declarations &declarations) {
    auto line = "complete -c " + declarations.name + condition;
    for (const auto &name : option.names)
        line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    return line + (option.takesValue() ? words(option, declarations) : "") + " -d " + inFishQuotes(option.about) + "\n";
}

std::string operandLines(const Command &command, const Declarations &declarations) {
    std::string lines;
    size_t number = 0;
    for (const auto &operand : command.operands) {
        const auto condition = "__fish_" + declarations.name + "_in " + command.name + " " + std::to_string(++number);
        const auto start = "complete -c " + declarations.name + " -n '";
        if (operand.kind == WordKind::program)
            lines += start + condition + " more' -r -F\n";
        else if (operand.kind != WordKind::other)
            lines +=
                start + condition + (operand.isRepeated ? " more" : "") + "'" + words(operand, declarations) + "\n";
        if (operand.kind == WordKind::program)
            lines += start + condition + "'" + words(operand, declarations) + "\n";
    }
    return lines;
}

std::string commandLines(const Command &command, const Declarations &declarations) {
    auto lines = "\ncomplete -c " + declarations.name + " -n __fish_" + declarations.name + "_needs_command -a " +
                 command.name + " -d " + inFishQuotes(command.about) + "\n";
    const auto condition = " -n '__fish_" + declarations.name + "_in " + command.name + "'";
    for (const auto &option : command.options)
        lines += optionLine(condition, option, declarations);
    return lines + operandLines(command, declarations);
}

/// The options that have a value, each as a word of its command and its name.
std::string valuedOptions(const Declarations &declarations) {
    std::vector<std::string> names;
    const auto add = [&](const std::string &command, const std::vector<Argument> &options) {
        for (const auto &option : options)
            for (const auto &name : option.names)
                if (option.takesValue())
                    names.push_back("'" + command + " " + name + "'");
    };
    add("-", declarations.common);
    for (const auto &command : declarations.commands)
        add(command.name, command.options);
    return image::join(names, " ");
}

}  // namespace

std::string fishCompletion(const Declarations &declarations) {
    auto script = replaced(kFunctions, "@valued@", valuedOptions(declarations));
    script = replaced(script, "@first@", image::join(optionsFirstNames(declarations), " "));
    script = replaced(script, "@name@", declarations.name);
    for (const auto &option : declarations.common)
        script += optionLine("", option, declarations);
    for (const auto &option : declarations.options)
        script += optionLine(" -n __fish_" + declarations.name + "_needs_command", option, declarations);
    for (const auto &command : declarations.commands)
        script += commandLines(command, declarations);
    return script;
}

}  // namespace tavdb::command
