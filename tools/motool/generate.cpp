#include <algorithm>
#include <string>

#include "commands.h"

namespace Motool {

namespace {

using Options = std::vector<const CLI::Option*>;

// Those that the help shows.
Options ShownOptions(const CLI::App& app) {
    return app.get_options([](const CLI::Option* option) { return !option->get_group().empty(); });
}

std::vector<const CLI::App*> Commands(const CLI::App& program) {
    return program.get_subcommands([](const CLI::App*) { return true; });
}

/// "--level", "-o,--output", or "FILE" for what has no dashes.
std::string Names(const CLI::Option& option) {
    return option.get_name(option.get_positional(), !option.get_positional());
}

std::string ArgumentName(const CLI::Option& option) {
    if (!option.get_option_text().empty())
        return option.get_option_text();
    return option.get_items_expected_max() == 0 ? std::string() : option.get_type_name();
}

/// "LEVEL:{debug,info}" apart.
std::vector<std::string> Choices(const CLI::Option& option) {
    std::vector<std::string> choices;
    const std::string type = option.get_type_name();
    const std::size_t open = type.find('{');
    const std::size_t close = type.rfind('}');
    if (open == std::string::npos || close == std::string::npos)
        return choices;
    for (std::size_t at = open + 1; at < close;) {
        const std::size_t comma = std::min(type.find(',', at), close);
        choices.push_back(type.substr(at, comma - at));
        at = comma + 1;
    }
    return choices;
}

std::string Value(const CLI::Option& option) {
    const std::string name = ArgumentName(option);
    const std::size_t colon = name.find(':');
    std::string value = name.substr(0, colon);
    // Ranges, and what CLI11 adds to say what is checked.
    value = value.substr(0, value.find(" in ["));
    return value;
}

// ---- The man page

std::string Roff(const std::string& text) {
    std::string escaped;
    bool isLineStart = true;
    for (const char c : text) {
        if (isLineStart && (c == '.' || c == '\''))
            escaped += "\\&";
        if (c == '\\')
            escaped += "\\e";
        else if (c == '-')
            escaped += "\\-";
        else
            escaped += c;
        isLineStart = c == '\n';
    }
    return escaped;
}

std::string ManOptions(const CLI::App& app) {
    std::string page;
    for (const CLI::Option* const option : ShownOptions(app)) {
        const std::string value = option->get_positional() ? std::string() : Value(*option);
        page += ".TP\n.B " + Roff(Names(*option));
        page += value.empty() ? "\n" : " \\fI" + Roff(value) + "\\fR\n";
        page += Roff(option->get_description()) + '\n';
        std::string choices;
        for (const std::string& choice : Choices(*option))
            choices += (choices.empty() ? "One of " : ", ") + choice;
        if (!choices.empty())
            page += Roff(choices) + ".\n";
    }
    return page;
}

// What the help says behind the options: paragraphs, and indented lines as they stand.
std::string ManFooter(const std::string& footer) {
    std::string page;
    bool isExample = false;
    for (std::size_t at = 0; at < footer.size();) {
        const std::size_t end = std::min(footer.find('\n', at), footer.size());
        const std::string line = footer.substr(at, end - at);
        at = end + 1;
        const bool isIndented = !line.empty() && line.front() == ' ';
        if (isIndented != isExample)
            page += isIndented ? ".PP\n.nf\n" : ".fi\n";
        isExample = isIndented;
        page += line.empty() ? ".PP\n" : Roff(isIndented ? "    " + line.substr(2) : line) + '\n';
    }
    return page + (isExample ? ".fi\n" : "");
}

std::string Synopsis(const CLI::App& command) {
    std::string line = ".B motool " + command.get_name() + "\n[\\fIOPTION\\fR]...";
    for (const CLI::Option* const option : ShownOptions(command)) {
        if (option->get_positional())
            line += option->get_required() ? " \\fI" + Names(*option) + "\\fR" : " [\\fI" + Names(*option) + "\\fR]";
    }
    return line + "\n.br\n";
}

// ---- The completion

std::string Quoted(const std::string& word) {
    return '\'' + word + '\'';
}

std::string OptionWords(const CLI::App& app) {
    std::string words;
    for (const CLI::Option* const option : ShownOptions(app)) {
        for (const std::string& name : option->get_snames())
            words += " -" + name;
        for (const std::string& name : option->get_lnames())
            words += " --" + name;
    }
    return words;
}

} // namespace

std::string ManPage(const CLI::App& program) {
    std::string page =
        ".TH MOTOOL 1 \"\" \"motool " MOTOOL_VERSION "\" \"MoToolkit\"\n.SH NAME\nmotool \\- the toolkit at "
        "the command line\n.SH SYNOPSIS\n";
    for (const CLI::App* const command : Commands(program))
        page += Synopsis(*command);
    page += ".SH DESCRIPTION\n" + Roff(program.get_description()) + "\n.SH OPTIONS\n" + ManOptions(program);
    page += ".SH COMMANDS\n";
    for (const CLI::App* const command : Commands(program))
        page += ".SS motool " + command->get_name() + '\n' + Roff(command->get_description()) + ".\n.PP\n" +
                ManFooter(command->get_footer()) + ManOptions(*command);
    page +=
        ".SH EXIT STATUS\n.TP\n.B 0\nDone.\n.TP\n.B 1\nNot found, or a check failed.\n.TP\n.B 2\nWrong usage.\n.PP\n"
        "That of \\fBmotool lock\\fR with \\fB\\-\\-run\\fR is the command's.\n";
    page += ".SH NOTES\nOutput that does not go to a terminal has no colours, no bar and no line that is cut.\n"
            "Texts are read and shown in the charset of the locale.\n";
    return page;
}

std::string Completion(const CLI::App& program) {
    std::string commands;
    std::string cases;
    for (const CLI::App* const command : Commands(program)) {
        commands += (commands.empty() ? "" : " ") + command->get_name();
        std::string values;
        std::string words; // options that take one of any words
        for (const CLI::Option* const option : ShownOptions(*command)) {
            if (option->get_positional() || option->get_items_expected_max() == 0)
                continue;
            const std::string name = option->get_name(false, true);
            std::string pattern = name;
            std::replace(pattern.begin(), pattern.end(), ',', '|');
            std::string choices;
            for (const std::string& choice : Choices(*option))
                choices += (choices.empty() ? "" : " ") + choice;
            if (!choices.empty())
                values += "                " + pattern + ") COMPREPLY=($(compgen -W " + Quoted(choices) +
                          " -- \"$word\")); return ;;\n";
            else if (Value(*option) != "OUT")
                words += (words.empty() ? "" : "|") + pattern;
        }
        if (!words.empty())
            values += "                " + words + ") return ;;\n";
        cases += "        " + command->get_name() + ")\n            case $before in\n" + values + "            esac\n" +
                 "            options=" + Quoted(OptionWords(*command)) + "\n            ;;\n";
    }
    return "# bash completion for motool\n"
           "_motool() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} options=\n"
           "    COMPREPLY=()\n"
           "    if [[ $COMP_CWORD -eq 1 ]]; then\n"
           "        COMPREPLY=($(compgen -W " +
           Quoted(commands + OptionWords(program)) +
           " -- \"$word\"))\n"
           "        return\n"
           "    fi\n"
           "    case ${COMP_WORDS[1]} in\n" +
           cases +
           "    esac\n"
           "    if [[ $word == -* ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$options\" -- \"$word\"))\n"
           "    elif [[ ${COMP_WORDS[1]} == lock ]]; then\n"
           "        COMPREPLY=($(compgen -c -- \"$word\"))\n"
           "    else\n"
           "        COMPREPLY=($(compgen -f -- \"$word\"))\n"
           "    fi\n"
           "}\n"
           "complete -o filenames -F _motool motool\n";
}

} // namespace Motool
