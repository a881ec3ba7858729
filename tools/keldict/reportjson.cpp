#include "report.h"

#include "jsonwriter.h"

#include <ostream>

namespace Keldict {

namespace {

void writePlace(JsonWriter& json, const Place& place)
{
    if (place.row != 0)
        json.number("row", place.row);
    if (place.position.line != 0)
        json.number("line", place.position.line).number("column", place.position.column);
}

void writeFinding(JsonWriter& json, const Finding& finding)
{
    json.beginObject();
    json.text("code", finding.rule->code);
    json.text("severity", finding.severity == Severity::Error ? "error" : "warning");
    writePlace(json, finding.place);
    if (finding.id)
        json.number("id", *finding.id);
    if (!finding.name.empty())
        json.text("name", finding.name);
    json.text("what", finding.what).text("device", finding.effect);
    if (!finding.meant.empty())
        json.text("meant", finding.meant);
    if (finding.other) {
        json.key(roleOfOther(finding)).beginObject();
        writePlace(json, *finding.other);
        json.endObject();
    }
    if (finding.accepted)
        json.text("accepted", *finding.accepted);
    json.endObject();
}

void writeFile(JsonWriter& json, const FileFindings& file)
{
    json.beginObject().text("file", file.file).number("items", file.items);
    json.number("errors", file.errors()).number("warnings", file.warnings()).number("accepted", file.accepted());
    if (!file.unreadable.empty())
        json.text("unreadable", file.unreadable);
    json.key("findings").beginArray();
    for (const Finding& finding : file.findings)
        writeFinding(json, finding);
    json.endArray().endObject();
}

} // namespace

void reportJson(const std::vector<FileFindings>& files, std::ostream& out)
{
    JsonWriter json(out);
    json.beginObject().key("files").beginArray();
    for (const FileFindings& file : files)
        writeFile(json, file);
    json.endArray().endObject();
    out << '\n';
}

} // namespace Keldict
