#include "report.h"

#include "jsonwriter.h"

#include "kernel/kelversion.h"

#include <algorithm>
#include <ostream>

namespace Keldict {

namespace {

std::string_view levelOf(Severity severity)
{
    return severity == Severity::Error ? "error" : "warning";
}

/// The name as a reference relative to wherever the log is looked at, or as an URI of its own.
std::string uriOf(const std::string& file)
{
    constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string uri = file.front() == '/' ? "file://" : "";
    for (const char c : file) {
        const auto byte = static_cast<unsigned char>(c);
        if (plain.find(c) != std::string_view::npos)
            uri += c;
        else
            uri.append({'%', digits[byte >> 4U], digits[byte & 0xFU]});
    }
    return uri;
}

void writeRules(JsonWriter& json)
{
    json.key("rules").beginArray();
    for (const Rule* rule : Rules::all()) {
        json.beginObject().text("id", rule->code);
        json.key("shortDescription").beginObject().text("text", rule->summary).endObject();
        json.key("defaultConfiguration").beginObject().text("level", levelOf(rule->severity)).endObject();
        json.endObject();
    }
    json.endArray();
}

void writeTool(JsonWriter& json)
{
    json.key("tool").beginObject().key("driver").beginObject();
    json.text("name", "keldict").text("version", KEL_VERSION);
    writeRules(json);
    json.endObject().endObject();
}

void writeLocation(JsonWriter& json, const std::string& file, const Place& place)
{
    json.beginObject().key("physicalLocation").beginObject();
    json.key("artifactLocation").beginObject().text("uri", file == "-" ? "stdin" : uriOf(file)).endObject();
    if (place.position.line != 0)
        json.key("region")
            .beginObject()
            .number("startLine", place.position.line)
            .number("startColumn", place.position.column)
            .endObject();
    json.endObject();
    if (place.row != 0)
        json.key("logicalLocations")
            .beginArray()
            .beginObject()
            .text("name", "row " + std::to_string(place.row))
            .endObject()
            .endArray();
}

std::string messageOf(const Finding& finding)
{
    std::string text = finding.id ? "Item " + std::to_string(*finding.id) + ": " : std::string();
    text += finding.what + ". " + finding.effect;
    if (!finding.meant.empty())
        text += " Meant: " + finding.meant;
    return text;
}

void writeResult(JsonWriter& json, const std::string& file, const Finding& finding)
{
    const auto& rules = Rules::all();
    const auto index = std::find(rules.begin(), rules.end(), finding.rule) - rules.begin();
    json.beginObject().text("ruleId", finding.rule->code).number("ruleIndex", static_cast<std::uint64_t>(index));
    json.text("level", levelOf(finding.severity));
    json.key("message").beginObject().text("text", messageOf(finding)).endObject();
    json.key("locations").beginArray();
    writeLocation(json, file, finding.place);
    json.endObject().endArray();
    if (finding.other) {
        json.key("relatedLocations").beginArray();
        writeLocation(json, file, *finding.other);
        json.key("message").beginObject().text("text", roleOfOther(finding)).endObject();
        json.endObject().endArray();
    }
    if (finding.accepted) {
        json.key("suppressions").beginArray().beginObject().text("kind", "inSource");
        json.text("justification", *finding.accepted).endObject().endArray();
    }
    json.endObject();
}

void writeInvocation(JsonWriter& json, const std::vector<FileFindings>& files)
{
    const auto readable = [](const FileFindings& file) { return file.unreadable.empty(); };
    json.key("invocations").beginArray().beginObject().key("executionSuccessful");
    json.boolean(std::all_of(files.begin(), files.end(), readable));
    json.key("toolExecutionNotifications").beginArray();
    for (const FileFindings& file : files) {
        if (readable(file))
            continue;
        json.beginObject().text("level", "error").key("message").beginObject().text("text", file.unreadable);
        json.endObject().endObject();
    }
    json.endArray().endObject().endArray();
}

} // namespace

void reportSarif(const std::vector<FileFindings>& files, std::ostream& out)
{
    JsonWriter json(out);
    json.beginObject()
        .text("$schema", "https://docs.oasis-open.org/sarif/sarif/v2.1.0/errata01/os/schemas/sarif-schema-2.1.0.json")
        .text("version", "2.1.0");
    json.key("runs").beginArray().beginObject();
    writeTool(json);
    json.text("columnKind", "unicodeCodePoints");
    writeInvocation(json, files);
    json.key("results").beginArray();
    for (const FileFindings& file : files) {
        for (const Finding& finding : file.findings)
            writeResult(json, file.file, finding);
    }
    json.endArray().endObject().endArray().endObject();
    out << '\n';
}

} // namespace Keldict
