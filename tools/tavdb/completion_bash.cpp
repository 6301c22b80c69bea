// SPDX-License-Identifier: Apache-2.0
// The completion script for bash. Two tables are made from the declarations: which
// options a command has, and what each option and operand is completed with. The
// rest of the script is the same whatever the commands are.
#include "completion.h"

#include "image/text_util.h"

namespace tavdb::command {

namespace {

constexpr const char *kScript = R"script(# bash completion for @name@, made by "@name@ completion bash"

# The options of a command, and of none.
_tavdb_options() {
    case $1 in
@options@    esac
}

# What a word is completed with: _tavdb_kind COMMAND OPTION, or COMMAND and the number
# of an operand, "+" for those behind the last one. Nothing for an option without a value.
_tavdb_kind() {
    case "$1 $2" in
@kinds@    esac
}

# A word as the shell would hand it on; nothing in it is run.
_tavdb_plain() {
    plain=$1
    case $plain in
        [\"\']*)
            plain=${plain#?}
            plain=${plain%[\"\']}
            ;;
        *) plain=${plain//\\/} ;;
    esac
}

# The children of the node that a path names so far.
_tavdb_components() {
    local name parent=${1%"${1##*/}"}
    [[ -n $1 ]] || parent=/
    while IFS= read -r name; do
        candidates+=("$parent$name")
    done < <("$program" ${database:+-d "$database"} --no-hooks list -- "${parent:-/}" 2>/dev/null </dev/null)
}

# _tavdb_candidates KIND WORD
_tavdb_candidates() {
    case $1 in
        component) _tavdb_components "$2" ;;
        directory) mapfile -t candidates < <(compgen -d -- "$2") ;;
        file) mapfile -t candidates < <(compgen -f -- "$2") ;;
        program) mapfile -t candidates < <(compgen -c -- "$2") ;;
        listed*) read -ra candidates <<<"${1#listed}" ;;
    esac
    [[ $1 != directory && $1 != file ]] || compopt -o filenames 2>/dev/null
}

# The value of -d is needed to ask the database for its paths.
_tavdb_database() {
    database=$1
    [[ $1 != '~/'* ]] || database=$HOME/${1#'~/'}
}

# Splits the line as a user does: bash also splits words at "=", ":" and "@".
_tavdb_words() {
    local line=${COMP_LINE:-${COMP_WORDS[*]}} rest i
    words=()
    for ((i = 0; i <= COMP_CWORD; i++)); do
        rest=${line#"${line%%[![:blank:]]*}"}
        if ((i > 0)) && [[ $rest == "$line" ]]; then
            words[${#words[@]}-1]+=${COMP_WORDS[i]}
        else
            words+=("${COMP_WORDS[i]}")
        fi
        line=${rest#"${COMP_WORDS[i]}"}
    done
}

# Looks at all words in front of the one that is completed.
_tavdb_read() {
    local word
    for word in "${words[@]:1:${#words[@]}-2}"; do
        _tavdb_plain "$word"
        if [[ -n $option ]]; then
            [[ $option != @(-d|--directory) ]] || _tavdb_database "$plain"
            option=
        elif [[ -z $operandsOnly && $plain == -- ]]; then
            operandsOnly=yes
        elif [[ -z $operandsOnly && $plain == @(-d?*|--directory=*) ]]; then
            plain=${plain#-d}
            _tavdb_database "${plain#--directory=}"
        elif [[ -z $operandsOnly && $plain == -?* ]]; then
            [[ -z $(_tavdb_kind "$command" "$plain") ]] || option=$plain
        elif [[ -z $command ]]; then
            command=$plain
        else
            operand=$((operand + 1))
            [[ $command != @first@ ]] || operandsOnly=yes
        fi
    done
}

# Offers what begins with the word, with what bash needs to take it in.
_tavdb_offer() {
    local candidate quoted before='' breaks=${COMP_WORDBREAKS//[^=:@]/}
    # bash replaces only what stands behind these
    [[ -z $breaks || $raw == [\"\']* ]] || before=${word%"${word##*["$breaks"]}"}
    for candidate in "${candidates[@]}"; do
        [[ $candidate == "$plain"* ]] || continue
        quoted=$joined$candidate
        quoted=${quoted#"$before"}
        [[ $raw == [\"\']* || $kind == file || $kind == directory ]] || printf -v quoted %q "$quoted"
        COMPREPLY+=("$quoted")
    done
    [[ ${COMPREPLY[0]-} != */ ]] || compopt -o nospace 2>/dev/null
}

_tavdb() {
    local program=${1:-@name@} command='' option='' operandsOnly='' database='' operand=0
    local raw word plain joined='' kind
    local -a words candidates=()
    COMPREPLY=()
    _tavdb_words
    _tavdb_read
    raw=${words[${#words[@]}-1]}
    _tavdb_plain "$raw"
    word=$plain
    if [[ -z $option && -z $operandsOnly && $plain == --*=* ]]; then
        option=${plain%%=*}
        joined=$option=
        plain=${plain#*=}
    fi
    if [[ -n $option ]]; then
        kind=$(_tavdb_kind "$command" "$option")
    elif [[ -z $operandsOnly && $plain == -* ]]; then
        kind="listed $(_tavdb_options "$command")"
    else
        kind=$(_tavdb_kind "$command" $((operand + 1)))
        [[ -n $kind ]] || kind=$(_tavdb_kind "$command" +)
    fi
    _tavdb_candidates "$kind" "$plain"
    _tavdb_offer
}

complete -F _tavdb @name@
)script";

std::string kindText(const Argument &argument, const Declarations &declarations) {
    switch (argument.kind) {
        case WordKind::component:
            return "component";
        case WordKind::file:
            return "file";
        case WordKind::directory:
            return "directory";
        case WordKind::program:
            return "program";
        case WordKind::command:
            return "listed " + image::join(commandNames(declarations), " ");
        case WordKind::listed:
            return "listed " + image::join(argument.rules.values, " ");
        case WordKind::other:
            break;
    }
    return "other";
}

std::string caseLine(const std::string &pattern, const std::string &text) {
    return "        " + pattern + ") echo '" + text + "' ;;\n";
}

/// Without a command: of all commands.
std::string optionKinds(const std::string &command, const std::vector<Argument> &options,
                        const Declarations &declarations) {
    std::string lines;
    for (const auto &option : options)
        if (option.takesValue())
            for (const auto &name : option.names)
                lines += caseLine(command.empty() ? "*' " + name + "'" : "'" + command + " " + name + "'",
                                  kindText(option, declarations));
    return lines;
}

std::string operandKinds(const Command &command, const Declarations &declarations) {
    std::string lines;
    size_t number = 0;
    for (const auto &operand : command.operands) {
        const auto kind = kindText(operand, declarations);
        lines += caseLine("'" + command.name + " " + std::to_string(++number) + "'", kind);
        if (operand.isRepeated)
            lines += caseLine("'" + command.name + " +'", operand.kind == WordKind::program ? "file" : kind);
    }
    return lines;
}

std::string kinds(const Declarations &declarations) {
    auto lines = optionKinds("", declarations.common, declarations);
    for (const auto &command : declarations.commands)
        lines += optionKinds(command.name, command.options, declarations) + operandKinds(command, declarations);
    return lines + caseLine("' 1'", "listed " + image::join(commandNames(declarations), " "));
}

std::string optionNames(std::vector<Argument> options, const std::vector<Argument> &others) {
    options.insert(options.end(), others.begin(), others.end());
    std::vector<std::string> names;
    for (const auto &option : options)
        names.insert(names.end(), option.names.begin(), option.names.end());
    return image::join(names, " ");
}

std::string options(const Declarations &declarations) {
    auto lines = caseLine("''", optionNames(declarations.options, declarations.common));
    for (const auto &command : declarations.commands)
        lines += caseLine(command.name, optionNames(command.options, declarations.common));
    return lines;
}

}  // namespace

std::string bashCompletion(const Declarations &declarations) {
    auto script = replaced(kScript, "@options@", options(declarations));
    script = replaced(script, "@kinds@", kinds(declarations));
    script = replaced(script, "@first@", "@(" + image::join(optionsFirstNames(declarations), "|") + ")");
    return replaced(script, "@name@", declarations.name);
}

}  // namespace tavdb::command
