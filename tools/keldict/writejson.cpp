#include "writejson.h"

#include "fields.h"
#include "spelling.h"

#include <ostream>

namespace Keldict {

namespace {

void writeItem(const Dictionary& dictionary, const Ombrin::tagStorageData& item, std::ostream& out)
{
    const char* separator = "    {";
    for (const Field field : allFields) {
        if (field == Field::DBSource && dictionary.isSaved)
            continue;
        out << separator << '"' << nameOf(field) << "\": " << jsonOf(contentOf(item, field));
        separator = ", ";
    }
    out << '}';
}

} // namespace

void writeJson(const Dictionary& dictionary, std::ostream& out)
{
    out << "{\n  \"kel\": [";
    const char* separator = "\n";
    for (const auto& item : dictionary.items) {
        out << separator;
        writeItem(dictionary, item, out);
        separator = ",\n";
    }
    out << "\n  ]\n}\n";
}

} // namespace Keldict
