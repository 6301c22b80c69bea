// SPDX-License-Identifier: Apache-2.0
// The completion script for zsh: the arguments of each command in the form in which
// the shell's own _arguments takes them, and a function that asks the database for paths.
#include "completion.h"

#include "image/text_util.h"

namespace tavdb::command {

namespace {

constexpr const char *kStart = R"script(#compdef @name@
# zsh completion for @name@, made by "@name@ completion zsh"

# The children of the node that the word names so far. "typed" is the whole line.
_@name@_components() {
    local word=${(Q)PREFIX} name parent database
    local -a nodes leaves
    integer i
    for ((i = 2; i < ${#typed}; i++)); do
        case ${typed[i]} in
            -d | --directory) database=${(Q)typed[i+1]} ;;
            -d?*) database=${(Q)typed[i]#-d} ;;
            --directory=*) database=${(Q)typed[i]#--directory=} ;;
        esac
    done
    [[ $database != '~/'* ]] || database=$HOME/${database#'~/'}
    parent=${word%"${word##*/}"}
    [[ -n $word ]] || parent=/
    local -a ask=("${(Q)typed[1]}" ${database:+-d} $database --no-hooks list -- ${parent:-/})
    for name in ${(f)"$($ask 2>/dev/null </dev/null)"}; do
        if [[ $name == */ ]]; then
            nodes+=("$parent$name")
        else
            leaves+=("$parent$name")
        fi
    done
    compadd -S '' -a nodes
    compadd -a leaves
}

_@name@_commands() {
    local -a commands=(
@commands@    )
    _describe -t commands command commands
}

_@name@() {
    local context state state_descr curcontext=$curcontext
    local -a typed=("${words[@]}") common=(
@common@    )
    typeset -A opt_args

    integer i=2
    # what stands in front of the command
    while ((i < CURRENT)); do
        case ${words[i]} in
@valued@            -*) ((i++)) ;;
            *) break ;;
        esac
    done
    if ((i >= CURRENT)); then
        _arguments $common \
@program@            '1:command:_@name@_commands'
        return
    fi
    local command=${words[i]}
    words=("$command" "${(@)words[i+1,-1]}")
    ((CURRENT -= i - 1))
    # _arguments would count it as an operand
    i=${words[(i)--]}
    if ((i < CURRENT)); then
        words[i]=()
        ((CURRENT--))
    fi
    case $command in
)script";

constexpr const char *kEnd = R"script(    esac
}

_@name@ "$@"
)script";

constexpr const char *kNextLine = " \\\n                ";

std::string inZshQuotes(const std::string &text) {
    return "'" + replaced(text, "'", "'\\''") + "'";
}

/// A text inside of brackets, or one that ends at a colon.
std::string escaped(std::string text) {
    for (const char *special : {"\\", "[", "]", ":"})
        text = replaced(text, special, std::string("\\") + special);
    return text;
}

std::string action(const Argument &argument, const Declarations &declarations) {
    switch (argument.kind) {
        case WordKind::component:
            return "_" + declarations.name + "_components";
        case WordKind::file:
            return "_files";
        case WordKind::directory:
            return "_files -/";
        case WordKind::program:
            return "_command_names -e";
        case WordKind::command:
            return "_" + declarations.name + "_commands";
        case WordKind::listed:
            return "(" + image::join(argument.rules.values, " ") + ")";
        case WordKind::other:
            break;
    }
    return " ";
}

/// One specification for each name; a name excludes the others.
std::string optionSpecs(const Argument &option, const Declarations &declarations, const std::string &indentation,
                        const std::string &lineEnd) {
    std::string lines;
    for (const auto &name : option.names) {
        // "-d DIR" and "-dDIR"; "--directory DIR" and "--directory=DIR"
        const std::string joint = !option.takesValue() ? "" : name.starts_with("--") ? "=" : "+";
        auto spec = "(" + image::join(option.names, " ") + ")" + name + joint + "[" + escaped(option.about) + "]";
        if (option.takesValue())
            spec += ":" + escaped(option.placeholder) + ":" + action(option, declarations);
        lines += indentation + inZshQuotes(spec) + lineEnd;
    }
    return lines;
}

std::string operandSpecs(const Command &command, const Declarations &declarations) {
    std::string lines;
    size_t number = 0;
    for (const auto &operand : command.operands) {
        const bool isProgram = operand.kind == WordKind::program;
        const auto place = operand.isRepeated && !isProgram ? "*" : std::to_string(++number);
        lines +=
            kNextLine + inZshQuotes(place + ":" + escaped(operand.placeholder) + ":" + action(operand, declarations));
        if (isProgram)
            lines += kNextLine + inZshQuotes("*:ARGUMENT:_files");
    }
    return lines;
}

std::string commandCase(const Command &command, const Declarations &declarations) {
    const std::string first = command.optionsStandFirst ? " -A '-*'" : "";
    auto lines = "        " + command.name + ")\n            _arguments -S" + first + " $common";
    for (const auto &option : command.options)
        lines += optionSpecs(option, declarations, kNextLine, "");
    return lines + operandSpecs(command, declarations) + "\n            ;;\n";
}

/// How many words an option in front of the command takes.
std::string valuedCase(const Declarations &declarations) {
    std::vector<std::string> names;
    for (const auto &option : declarations.common)
        if (option.takesValue())
            names.insert(names.end(), option.names.begin(), option.names.end());
    return "            " + image::join(names, " | ") + ") ((i += 2)) ;;\n";
}

std::string commandList(const Declarations &declarations) {
    std::string lines;
    for (const auto &command : declarations.commands)
        lines += "        " + inZshQuotes(command.name + ":" + escaped(command.about)) + "\n";
    return lines;
}

}  // namespace

std::string zshCompletion(const Declarations &declarations) {
    auto script = replaced(kStart, "@commands@", commandList(declarations));
    std::string common;
    std::string ofProgram;
    for (const auto &option : declarations.common)
        common += optionSpecs(option, declarations, "        ", "\n");
    for (const auto &option : declarations.options)
        ofProgram += optionSpecs(option, declarations, "            ", " \\\n");
    script = replaced(script, "@common@", common);
    script = replaced(script, "@program@", ofProgram);
    script = replaced(script, "@valued@", valuedCase(declarations));
    for (const auto &command : declarations.commands)
        script += commandCase(command, declarations);
    return replaced(script + kEnd, "@name@", declarations.name);
}

}  // namespace tavdb::command
