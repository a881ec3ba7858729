#include "commandline.h"

#include "check.h"
#include "convert.h"
#include "diff.h"
#include "failure.h"
#include "report.h"
#include "show.h"
#include "words.h"

#include "kernel/kelversion.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Keldict {

namespace {

constexpr const char* twoFiles = "Two files: JSON dictionary, configuration database or kelmem.db";
constexpr const char* anyFile = "A JSON dictionary, a configuration database or a saved kelmem.db; - is standard input";

struct Options
{
    std::vector<std::string> files; // of check
    Format format = Format::Text;
    std::size_t limit = 100; // of findings with one code in a file; 0: no limit
    bool strict = false;
    std::vector<std::string> accepted;
    bool force = false;
    bool asJson = false;
    std::string in;
    std::string out;
    Selection selection;
};

std::string checkedCode(const std::string& code)
{
    const Rule* const rule = Rules::find(code);
    return rule && rule->severity == Severity::Warning ? std::string() : code + " is no warning of this program";
}

/// "A..B", "A..", "..B" or "A".
void readRange(const std::string& text, Selection& selection)
{
    const auto number = [&](const std::string& digits, std::uint32_t otherwise) {
        if (digits.empty())
            return otherwise;
        std::uint32_t value = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        if (error != std::errc() || end != digits.data() + digits.size())
            throw CLI::ValidationError("--id", text + " is no range of IDs, such as 1000..1999");
        return value;
    };
    const auto dots = text.find("..");
    if (text.empty() || text == "..")
        throw CLI::ValidationError("--id", "a range of IDs is missing, such as 1000..1999");
    selection.firstId = number(text.substr(0, dots), selection.firstId);
    selection.lastId = dots == std::string::npos ? selection.firstId : number(text.substr(dots + 2), selection.lastId);
    if (selection.firstId > selection.lastId)
        throw CLI::ValidationError("--id", text + " holds no ID: its first is above its last");
}

void addCheck(CLI::App& app, Options& options)
{
    CLI::App* const check = app.add_subcommand("check", "Tell what the device would stop at, lose or do silently");
    check->add_option("FILE", options.files, "JSON dictionaries or configuration databases; - is standard input")
        ->required();
    check->add_flag("--strict", options.strict, "Let warnings end with status 1");
    check->add_option("--accept", options.accepted, "A warning that is meant to be, by its code; may be repeated")
        ->type_name("CODE")
        ->check(checkedCode)
        ->allow_extra_args(false);
    const std::map<std::string, Format> formats{
        {"text", Format::Text}, {"json", Format::Json}, {"sarif", Format::Sarif}};
    check->add_option("--format", options.format, "text (the default), json, or sarif (2.1.0)")
        ->type_name("FORMAT")
        ->transform(CLI::CheckedTransformer(formats).description(""));
    check->add_option("--limit", options.limit, "How many findings of each code to print of a file (100); 0 is all")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber.description(""));
    check->footer("Exit status: 0 clean, 1 warnings and --strict, 2 errors, 3 a file cannot be read.");
}

void addConvert(CLI::App& app, Options& options)
{
    CLI::App* const convert = app.add_subcommand("convert", "Turn a JSON dictionary into a database, or back");
    convert->add_option("IN", options.in, anyFile)->required();
    convert->add_option("OUT", options.out, "What to write; the name ends in .json or .db")->required();
    convert->add_flag("--force", options.force, "Replace OUT if it is there");
    convert->footer(
        "Exit status: 0 everything is kept, 1 something is not, 2 the device would not load IN,\n"
        "3 a file cannot be read or written.");
}

void addShow(CLI::App& app, Options& options)
{
    CLI::App* const show = app.add_subcommand("show", "Print the items as the device would load them");
    show->add_option("FILE", options.in, anyFile)->required();
    show->add_option("--block", options.selection.block, "Only items of this block")
        ->type_name("N")
        ->check(CLI::Range(0, 255).description(""));
    show->add_option_function<std::string>(
            "--id", [&options](const std::string& text) { readRange(text, options.selection); },
            "Only items with these IDs; either end may be left out")
        ->type_name("A..B");
    show->add_option("--name", options.selection.nameGlob, "Only items with such names, as in 'Barrel_*'")
        ->type_name("GLOB");
    show->add_flag("--json", options.asJson, "Print a JSON dictionary");
    show->footer("Exit status: 0 shown, 2 the device would not load FILE, 3 FILE cannot be read.");
}

void addDiff(CLI::App& app, Options& options)
{
    CLI::App* const diff = app.add_subcommand("diff", "Tell what differs between the items of two files");
    diff->add_option("A", options.in, anyFile)->required();
    diff->add_option("B", options.out, twoFiles)->required();
    diff->footer("Exit status: 0 nothing differs, 1 something does, 2 trouble.");
}

bool useColours()
{
    const char* const refused = std::getenv("NO_COLOR"); // NOLINT(concurrency-mt-unsafe): no other thread runs
    return isatty(STDOUT_FILENO) == 1 && !(refused && *refused != '\0');
}

void print(const std::vector<FileFindings>& files, const Options& options)
{
    for (const FileFindings& file : files) {
        if (!file.unreadable.empty())
            std::cerr << "keldict: " << file.unreadable << '\n';
    }
    if (options.format == Format::Json)
        reportJson(files, std::cout);
    else if (options.format == Format::Sarif)
        reportSarif(files, std::cout);
    else
        reportText(files, useColours(), options.limit > 0 ? options.limit : SIZE_MAX, std::cout);
}

int check(const Options& options)
{
    Acceptances accepted;
    for (const std::string& code : options.accepted)
        accepted.emplace(code, "on the command line");
    std::vector<FileFindings> files;
    int status = Clean;
    for (const std::string& file : options.files) {
        files.push_back(checkFile(file, accepted));
        status = std::max(status, statusOf(files.back(), options.strict));
    }
    print(files, options);
    return status;
}

int dispatch(const CLI::App& app, const Options& options)
{
    if (app.got_subcommand("check"))
        return check(options);
    if (app.got_subcommand("convert"))
        return convert(options.in, options.out, options.force);
    if (app.got_subcommand("show"))
        return show(options.in, options.selection, options.asJson);
    return diff(options.in, options.out);
}

/// What went wrong, in the numbers of the command.
int statusFor(const CLI::App& app, Status status)
{
    return app.got_subcommand("diff") ? static_cast<int>(Wrong) : static_cast<int>(status);
}

int fail(const CLI::App& app, Status status, const std::string& message)
{
    std::cerr << "keldict: " << message << '\n';
    return statusFor(app, status);
}

/// CLI11 does not say that a command is unknown.
std::string messageFor(const CLI::App& app, const CLI::ParseError& error, std::string_view command)
{
    std::vector<std::string_view> known;
    for (const CLI::App* subcommand : app.get_subcommands([](const CLI::App*) { return true; }))
        known.emplace_back(subcommand->get_name());
    const bool isKnown = std::find(known.begin(), known.end(), command) != known.end();
    if (command.empty() || command[0] == '-' || isKnown)
        return std::string(error.what()) + "; see --help";
    const auto meant = nearest(command, known);
    return inQuotes(command) + " is no command; " + (meant ? "did you mean " + inQuotes(*meant) + "?" : "see --help");
}

/// What has been printed has to arrive.
int finish(const CLI::App& app, int status)
{
    std::cout.flush();
    return std::cout ? status : fail(app, Unreadable, "standard output cannot be written");
}

} // namespace

int run(int argc, const char* const* argv)
{
    CLI::App app("Checks, shows, compares and converts data dictionaries, by what the device would do with them.",
                 "keldict");
    Options options;
    app.set_help_flag("-h,--help", "Show this text");
    app.set_version_flag("--version", "keldict " KEL_VERSION, "Show the version");
    app.require_subcommand(1);
    addCheck(app, options);
    addConvert(app, options);
    addShow(app, options);
    addDiff(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        return fail(app, Misused, messageFor(app, error, argc > 1 ? argv[1] : ""));
    }
    try {
        return finish(app, dispatch(app, options));
    } catch (const Failure& failure) {
        return fail(app, failure.status, failure.what());
    } catch (const std::exception& error) {
        return fail(app, Unreadable, error.what());
    }
}

} // namespace Keldict
