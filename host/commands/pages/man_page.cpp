#include "host/commands/pages/man_page.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace host {

namespace {

constexpr char Version[] = "orlith 0.1.0";
constexpr char Manual[] = "Orlith manual";

// Text as it stands: no character of it is an instruction, and a dash can be copied into a shell.
std::string escaped(const std::string& text) {
    std::string out;
    for (const char letter : text) {
        if (letter == '\\')
            out += "\\e";
        else if (letter == '-')
            out += "\\-";
        else if (letter == '~')
            out += "\\(ti";
        else if (letter == '`')
            out += "\\(ga";
        else if (letter == '\'')
            out += "\\(aq";
        else if (letter == '^')
            out += "\\(ha";
        else
            out += letter;
    }
    return out.starts_with('.') ? "\\&" + out : out;
}

std::string dashed(std::string words) {
    std::ranges::replace(words, ' ', '-');
    return words;
}

std::string upper(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::string firstLineOf(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

// One page, line by line.
class Page {
public:
    Page(const std::string& title, int section) {
        add(".TH " + upper(escaped(title)) + " " + std::to_string(section) + " \"\" \"" + Version +
            "\" \"" + Manual + "\"");
        add(".nh");
        add(".ad l");
    }

    void add(const std::string& line) { _text += line + "\n"; }
    void section(const std::string& name) { add(".SH " + name); }
    void text(const std::string& plain) {
        for (const std::string& line : linesOf(plain))
            add(escaped(line));
    }

    void options(const std::vector<OptionModel>& options) {
        for (const OptionModel& option : options) {
            add(".TP");
            add(headOf(option));
            const bool isDemanded = option.isRequired && !option.names.empty();
            text((option.help.empty() ? "Takes a value" : option.help) +
                 (isDemanded ? "; required" : ""));
        }
    }

    // Free text under the headings that it names itself; what is indented stays as it is.
    void footer(const std::string& footer, const char* subsection) {
        bool isVerbatim = false;
        const std::size_t first = footer.find_first_not_of('\n');
        if (subsection == std::string(".SH") && first != std::string::npos &&
            !isHeading(firstLineOf(footer.substr(first))))
            section("NOTES");
        for (const std::string& line : linesOf(footer)) {
            const bool isIndented = line.starts_with("  ");
            if (isVerbatim && !isIndented) {
                add(".EE");
                isVerbatim = false;
            }
            if (isHeading(line)) {
                add(std::string(subsection) + " " + headingOf(line));
            } else if (isIndented) {
                if (!isVerbatim) {
                    add(".PP");
                    add(".EX");
                }
                isVerbatim = true;
                add(escaped(line));
            } else if (line.empty()) {
                if (!_text.ends_with(".PP\n"))
                    add(".PP");
            } else {
                add(escaped(line));
            }
        }
        if (isVerbatim)
            add(".EE");
        while (_text.ends_with("\n.PP\n"))
            _text.erase(_text.size() - 4);
    }

    std::string take() { return std::move(_text); }

private:
    static bool isHeading(const std::string& line) {
        return line == "Examples:" || line == "Example:" || line == "Exit codes:";
    }
    static std::string headingOf(const std::string& line) {
        return line == "Exit codes:" ? "\"EXIT STATUS\"" : "EXAMPLES";
    }
    static std::string headOf(const OptionModel& option) {
        std::string head;
        for (const std::string& name : option.names)
            head += (head.empty() ? "" : ", ") + ("\\fB" + escaped(name) + "\\fR");
        if (!option.value.empty())
            head += (head.empty() ? "" : " ") + ("\\fI" + escaped(option.value) + "\\fR");
        return head;
    }

    std::string _text;
};

void describe(Page& page, const CommandModel& command) {
    page.section("NAME");
    page.add(escaped(dashed(command.path)) + " \\- " + escaped(firstLineOf(command.purpose)));
    page.section("SYNOPSIS");
    page.add(".B " + escaped(synopsisOf(command)));
    page.section("DESCRIPTION");
    page.text(command.purpose + (command.purpose.ends_with('.') ? "" : "."));
}

void addOptions(Page& page, const CommandModel& command) {
    if (!command.positionals.empty()) {
        page.section("ARGUMENTS");
        page.options(command.positionals);
    }
    if (!command.options.empty()) {
        page.section("OPTIONS");
        page.options(command.options);
    }
}

void addAction(Page& page, const CommandModel& action) {
    page.add(".SS " + escaped(synopsisOf(action)));
    page.text(action.purpose + ".");
    page.options(action.positionals);
    page.options(action.options);
    if (!action.footer.empty())
        page.footer(action.footer, ".PP\n.B");
}

}  // namespace

ManPage manPageOfProgram(const CommandModel& program, int section) {
    Page page(program.name, section);
    describe(page, program);
    addOptions(page, program);
    std::string group;
    for (const CommandModel& command : program.commands) {
        if (group.empty())
            page.section("COMMANDS");
        if (command.group != group)
            page.add(".SS " + escaped(command.group));
        group = command.group;
        page.add(".TP");
        page.add("\\fB" + escaped(dashed(command.path)) + "\\fR(1)");
        page.text(command.purpose);
    }
    page.footer(program.footer, ".SH");
    page.section("SEE ALSO");
    page.add(section == 1 ? "\\fBorlithd\\fR(8)" : "\\fBorlith\\fR(1)");
    return {program.name + "." + std::to_string(section), page.take()};
}

ManPage manPageOfCommand(const CommandModel& command) {
    Page page(dashed(command.path), 1);
    describe(page, command);
    addOptions(page, command);
    if (!command.commands.empty())
        page.section("ACTIONS");
    for (const CommandModel& action : command.commands)
        addAction(page, action);
    page.footer(command.footer, ".SH");
    page.section("SEE ALSO");
    page.add("\\fBorlith\\fR(1), \\fBorlithd\\fR(8)");
    return {dashed(command.path) + ".1", page.take()};
}

}  // namespace host
