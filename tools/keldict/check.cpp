#include "check.h"

#include "databasecheck.h"
#include "failure.h"
#include "jsoncheck.h"
#include "source.h"

#include <algorithm>
#include <filesystem>
#include <tuple>
#include <utility>

namespace Keldict {

namespace {

void checkFileName(const Source& source, std::vector<Finding>& findings)
{
    if (source.isStandardInput())
        return;
    const bool isDatabase = source.kind == Source::Kind::Database;
    const std::string ending = isDatabase ? ".db" : ".json";
    Finding finding{&Rules::fileName, Severity::Error, {}, {}, {}, {}, {}, {}, {}, {}};
    if (isDatabase && endsWith(source.name, ".json")) {
        finding.what = "the file is a database";
        finding.effect = "The device reads it as JSON, and stops.";
    } else if (!endsWith(source.name, ending)) {
        finding.what = "the name does not end in " + ending + ", in small letters";
        finding.effect = "The device reads nothing from a file of this name.";
    } else if (std::filesystem::path(source.name).filename() == "kelmem.db") {
        finding.what = "the name is that of the saved file";
        finding.effect = "The device refuses it by this name in its folder, and saves its values into it.";
    } else {
        return;
    }
    finding.meant = isDatabase ? "a name such as dictionary.db" : "a name such as dictionary.json";
    findings.push_back(std::move(finding));
}

auto orderOf(const Finding& finding)
{
    return std::make_tuple(finding.place.row, finding.place.position.line, finding.place.position.column);
}

void accept(const Acceptances& accepted, std::vector<Finding>& findings)
{
    for (Finding& finding : findings) {
        const auto reason = accepted.find(finding.rule->code);
        if (finding.severity == Severity::Warning && reason != accepted.end())
            finding.accepted = reason->second;
    }
}

void check(Source source, Acceptances accepted, FileFindings& result)
{
    checkFileName(source, result.findings);
    if (source.kind == Source::Kind::Database)
        checkDatabase(source, result);
    else
        checkJson(std::move(source), accepted, result);
    std::stable_sort(result.findings.begin(), result.findings.end(),
                     [](const Finding& a, const Finding& b) { return orderOf(a) < orderOf(b); });
    accept(accepted, result.findings);
}

} // namespace

FileFindings checkFile(const std::string& name, Acceptances accepted)
{
    FileFindings result{name, 0, {}, {}};
    try {
        check(openSource(name), std::move(accepted), result);
    } catch (const Failure& failure) {
        result.unreadable = failure.what();
    }
    return result;
}

int statusOf(const FileFindings& findings, bool strict)
{
    if (!findings.unreadable.empty())
        return Unreadable;
    if (findings.errors() > 0)
        return Wrong;
    return strict && findings.warnings() > 0 ? Warned : Clean;
}

} // namespace Keldict
