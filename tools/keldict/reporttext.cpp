#include "report.h"

#include "words.h"

#include <map>
#include <ostream>
#include <string>
#include <string_view>

namespace Keldict {

namespace {

/// Escape sequences, or nothing.
struct Colours
{
    explicit Colours(bool on)
    {
        if (on)
            *this = {"\x1b[1m", "\x1b[1;31m", "\x1b[1;35m", "\x1b[1;32m", "\x1b[0m"};
    }

    Colours(const char* boldText, const char* errorText, const char* warningText, const char* goodText,
            const char* resetText)
        : bold(boldText), error(errorText), warning(warningText), good(goodText), reset(resetText)
    {}

    const char* bold = "";
    const char* error = "";
    const char* warning = "";
    const char* good = "";
    const char* reset = "";
};

std::string itemOf(const Finding& finding)
{
    if (!finding.id && finding.name.empty())
        return {};
    std::string item = "item";
    if (finding.id)
        item += " " + std::to_string(*finding.id);
    if (!finding.name.empty())
        item += " " + inQuotes(finding.name);
    return item + ": ";
}

void printDetail(std::string_view label, const std::string& text, std::ostream& out)
{
    constexpr std::size_t width = 7; // of the label and its blanks
    out << "    " << label << ':' << std::string(width - label.size(), ' ') << text << '\n';
}

void print(const std::string& file, const Finding& finding, const Colours& colours, std::ostream& out)
{
    const bool isError = finding.severity == Severity::Error;
    const std::string place = shown(finding.place);
    out << colours.bold << file << ':' << place << (place.empty() ? " " : ": ") << colours.reset
        << (isError ? colours.error : colours.warning) << (isError ? "error: " : "warning: ") << colours.reset
        << itemOf(finding) << finding.what << " [" << finding.rule->code << "]\n";
    if (finding.other)
        printDetail(roleOfOther(finding), shown(*finding.other), out);
    if (!finding.effect.empty())
        printDetail("device", finding.effect, out);
    if (!finding.meant.empty())
        printDetail("meant", finding.meant, out);
}

/// Up to `limit` findings of each kind: one slip in a program that writes dictionaries is in every item.
void printFindings(const FileFindings& file, std::size_t limit, const Colours& colours, std::ostream& out)
{
    std::map<std::string_view, std::size_t> counts; // by code
    for (const Finding& finding : file.findings) {
        if (!finding.accepted && ++counts[finding.rule->code] <= limit)
            print(file.file, finding, colours, out);
    }
    for (const auto& [code, count] : counts) {
        if (count > limit)
            out << file.file << ": " << count - limit << " more [" << code << "]; --limit 0 prints all\n";
    }
}

struct Totals
{
    std::size_t items = 0;
    std::size_t errors = 0;
    std::size_t warnings = 0;
    std::size_t accepted = 0;
    std::size_t unreadable = 0;
};

Totals totalsOf(const std::vector<FileFindings>& files)
{
    Totals totals;
    for (const FileFindings& file : files) {
        totals.items += file.items;
        totals.errors += file.errors();
        totals.warnings += file.warnings();
        totals.accepted += file.accepted();
        totals.unreadable += file.unreadable.empty() ? 0 : 1;
    }
    return totals;
}

void printSummary(const std::vector<FileFindings>& files, const Colours& colours, std::ostream& out)
{
    const Totals totals = totalsOf(files);
    out << colours.bold << counted(files.size(), "file") << ", " << counted(totals.items, "item") << ": "
        << colours.reset;
    const bool clean = totals.errors + totals.warnings + totals.unreadable == 0;
    if (clean)
        out << colours.good << "clean" << colours.reset;
    else
        out << counted(totals.errors, "error") << ", " << counted(totals.warnings, "warning");
    if (totals.accepted > 0)
        out << ", " << counted(totals.accepted, "warning") << " accepted";
    if (totals.unreadable > 0)
        out << ", " << totals.unreadable << " not readable";
    out << '\n';
}

} // namespace

void reportText(const std::vector<FileFindings>& files, bool inColour, std::size_t limit, std::ostream& out)
{
    const Colours colours(inColour);
    for (const FileFindings& file : files)
        printFindings(file, limit, colours, out);
    printSummary(files, colours, out);
}

} // namespace Keldict
