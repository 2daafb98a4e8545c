#include "services/tarvctl/command.h"
#include "services/tarvctl/controller.h"

#include <algorithm>

#include <CLI/CLI.hpp>

namespace {

void add(std::string &words, const std::string &word)
{
    words += (words.empty() ? "" : " ") + word;
}

// What can stand at the place of an argument: names of VMs, files, keys, nothing that is known, or
// certain words, as "accept|status".
std::string kind_of(const std::string &argument)
{
    constexpr struct
    {
        std::string_view argument, kind;
    } kinds[] = {
        {"VM", "vms"},
        {"IMAGE", "images"},
        {"NAME", "-"},
        {"KEY", "keys"},
    };
    for (const auto &[name, kind] : kinds)
        if (name == argument)
            return std::string(kind);
    return argument;
}

// A line of the case statement: a command's options, those of them that take a value, and the kinds
// of its arguments, the last standing for all that follow.
std::string command_case(const CLI::App &command)
{
    std::string options, valued, kinds;
    for (const CLI::Option *option : command.get_options()) {
        if (!option->nonpositional())
            add(kinds, kind_of(option->get_name()));
        else if (option->get_group().empty())
            continue;
        for (const std::string &name : option->get_lnames()) {
            add(options, "--" + name);
            if (option->get_items_expected_max() > 0)
                add(valued, "--" + name);
        }
        for (const std::string &name : option->get_snames())
            add(options, "-" + name);
    }
    return "    " + command.get_name() + ") options='" + options + "' valued='" + valued +
           "' kinds='" + kinds + "' ;;\n";
}

std::string spaced(std::string words)
{
    std::replace(words.begin(), words.end(), '|', ' ');
    return words;
}

// The options whose values are certain words.
std::string value_cases(const CLI::App &app)
{
    std::string text;
    for (const CLI::App *command : app.get_subcommands({}))
        for (const CLI::Option *option : command->get_options())
            if (const std::string values = option->get_type_name();
                values.find('|') != std::string::npos)
                text += "        " + command->get_name() + ':' + option->get_name() +
                        ") _tarvctl_offer \"$typed\" " + spaced(values) + " ;;\n";
    return text;
}

// "@COMMANDS@", "@CASES@" and "@VALUES@" are filled in.
constexpr const char *SCRIPT = R"(# Completion of tarvctl for bash; made by: tarvctl completion

# Offers those of the given words that begin with what was typed.
_tarvctl_offer()
{
    local typed=$1 word
    shift
    for word; do
        if [[ $word == "$typed"* ]]; then
            COMPREPLY+=("$word")
        fi
    done
}

_tarvctl()
{
    # What was typed may be quoted; what is offered is quoted by bash, as names of files are.
    local typed=${2//\\/} options= valued= kinds= place=0 index line lines=() IFS=$' \t\n'
    typed=${typed#[\"\']}
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        _tarvctl_offer "$typed" @COMMANDS@ --help --version
        return
    fi
    case ${COMP_WORDS[1]} in
@CASES@    *) return ;;
    esac
    if [[ " $valued " == *" $3 "* ]]; then
        case ${COMP_WORDS[1]}:$3 in
@VALUES@        esac
        return
    fi
    if [[ $typed == -* ]]; then
        _tarvctl_offer "$typed" $options
        return
    fi
    for ((index = 2; index < COMP_CWORD; index++)); do
        if [[ " $valued " == *" ${COMP_WORDS[index]} "* ]]; then
            ((index++))
        elif [[ ${COMP_WORDS[index]} != -* ]]; then
            ((place++))
        fi
    done
    set -- $kinds # the last of them stands for all places that follow
    index=$((place < $# ? place + 1 : $#))
    ((index > 0)) || return
    case ${!index} in
    vms)
        while IFS= read -r line; do
            lines+=("$line")
        done < <(TARV_MACHINE_READABLE= ${COMP_WORDS[0]} list --names 2>/dev/null)
        _tarvctl_offer "$typed" "${lines[@]}"
        ;;
    images)
        while IFS= read -r line; do
            COMPREPLY+=("$line")
        done < <(compgen -f -- "$typed")
        _tarvctl_offer "$typed" latest
        ;;
    keys) # a key and a value in turns
        (((place - index) % 2)) && _tarvctl_offer "$typed" @KEYS@
        ;;
    -) ;;
    *) _tarvctl_offer "$typed" ${!index//|/ } ;;
    esac
}
complete -o filenames -F _tarvctl tarvctl
)";

void fill_in(std::string &text, const std::string &mark, const std::string &words)
{
    text.replace(text.find(mark), mark.size(), words);
}

} // namespace

Answer run_completion(const Arguments &)
{
    Arguments unused;
    const auto app = make_parser(unused);
    std::string commands, cases, keys;
    for (const CLI::App *command : app->get_subcommands({})) {
        if (command->get_group().empty())
            continue;
        add(commands, command->get_name());
        cases += command_case(*command);
    }
    for (const std::string &key : modify_keys())
        add(keys, "'" + key + "'");
    std::string text = SCRIPT;
    fill_in(text, "@COMMANDS@", commands);
    fill_in(text, "@CASES@", cases);
    fill_in(text, "@VALUES@", value_cases(*app));
    fill_in(text, "@KEYS@", keys);
    return {.body = text, .text = text};
}
