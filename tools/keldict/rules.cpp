#include "rules.h"

namespace Keldict::Rules {

const Rule emptyFile{"empty-file", Severity::Error, "The file holds nothing"};
const Rule byteOrderMark{"byte-order-mark", Severity::Error, "The file begins with a byte order mark"};
const Rule malformedJson{"malformed-json", Severity::Error, "The text is not strict JSON"};
const Rule rootNotObject{"root-not-object", Severity::Error, "The outermost value is no object"};
const Rule missingRoot{"missing-root", Severity::Error, "The outermost object has no member \"kel\""};
const Rule rootNotArray{"root-not-array", Severity::Error, "The member \"kel\" is no array"};
const Rule duplicateRoot{"duplicate-root", Severity::Error, "The member \"kel\" occurs twice"};
const Rule elementNotObject{"element-not-object", Severity::Error, "An element of \"kel\" is no object"};
const Rule notADatabase{"not-a-database", Severity::Error, "The file is no SQLite database"};
const Rule noTable{"no-table", Severity::Error, "The database has no table \"kel\""};
const Rule notATable{"not-a-table", Severity::Error,
                     "\"kel\" is a view, a virtual table, or computes a column that is read"};
const Rule tooFewColumns{"too-few-columns", Severity::Error, "The table has fewer columns than are read"};
const Rule savedFile{"saved-file", Severity::Error, "The database holds saved values, not a configuration"};
const Rule fileName{"file-name", Severity::Error, "The device does not read files of this name"};
const Rule noItems{"no-items", Severity::Error, "There are no items"};
const Rule nulByte{"nul-byte", Severity::Warning, "The text goes on behind a NUL byte"};
const Rule inheritedNames{"inherited-names", Severity::Error, "Items inherit names of more than 16 MiB"};
const Rule columnName{"column-name", Severity::Warning, "A column is read as another than its name says"};
const Rule wrongAcceptance{"wrong-acceptance", Severity::Warning, "What is accepted is no warning of this tool"};

const Rule missingId{"missing-id", Severity::Error, "An item has no ID"};
const Rule unusableId{"unusable-id", Severity::Error, "The ID is no integer from 1 to 4294967295"};
const Rule duplicateId{"duplicate-id", Severity::Error, "The ID belongs to an earlier item"};
const Rule duplicateName{"duplicate-name", Severity::Error, "The name belongs to an earlier item"};
const Rule changedId{"changed-id", Severity::Warning, "The ID is read as another number"};
const Rule largeId{"large-id", Severity::Warning, "The ID is above 2147483647"};
const Rule emptyName{"empty-name", Severity::Warning, "The name is empty"};
const Rule similarName{"similar-name", Severity::Warning,
                       "Names differ only in letter case, blanks or the way letters are composed"};

const Rule wrongType{"wrong-type", Severity::Warning, "The value has a type that the field does not take"};
const Rule byteOverflow{"byte-overflow", Severity::Warning, "The number does not fit into eight bits"};
const Rule inheritedField{"inherited-field", Severity::Warning, "A field takes what the item before had"};
const Rule unknownKey{"unknown-key", Severity::Warning, "The key is unknown"};
const Rule duplicateKey{"duplicate-key", Severity::Warning, "The key occurs twice in one item"};
const Rule nulInText{"nul-in-text", Severity::Warning, "The text holds a NUL character"};
const Rule invalidUtf8{"invalid-utf8", Severity::Warning, "The text is not UTF-8"};

const Rule unknownType{"unknown-type", Severity::Warning, "The value type holds no values"};
const Rule typeNotRestored{"type-not-restored", Severity::Warning, "A restart does not bring values of this type back"};
const Rule unconvertibleValue{"unconvertible-value", Severity::Warning, "The value type cannot hold the value"};
const Rule changedValue{"changed-value", Severity::Warning, "The value type holds the value in another form"};
const Rule roundedWhenSaved{"rounded-when-saved", Severity::Warning, "The saved file holds another number"};
const Rule outOfBounds{"out-of-bounds", Severity::Warning, "The value lies outside Min and Max"};
const Rule boundsExchanged{"bounds-exchanged", Severity::Warning, "Min lies above Max"};
const Rule textNotRestored{"text-not-restored", Severity::Warning, "A restart does not bring the text back"};

const std::vector<const Rule*>& all()
{
    static const std::vector<const Rule*> rules{
        &emptyFile,       &byteOrderMark,      &malformedJson,    &rootNotObject,    &missingRoot,
        &rootNotArray,    &duplicateRoot,      &elementNotObject, &notADatabase,     &noTable,
        &notATable,       &tooFewColumns,      &savedFile,        &fileName,         &noItems,
        &nulByte,         &inheritedNames,     &columnName,       &wrongAcceptance,  &missingId,
        &unusableId,      &duplicateId,        &duplicateName,    &changedId,        &largeId,
        &emptyName,       &similarName,        &wrongType,        &byteOverflow,     &inheritedField,
        &unknownKey,      &duplicateKey,       &nulInText,        &invalidUtf8,      &unknownType,
        &typeNotRestored, &unconvertibleValue, &changedValue,     &roundedWhenSaved, &outOfBounds,
        &boundsExchanged, &textNotRestored};
    return rules;
}

const Rule* find(std::string_view code)
{
    for (const Rule* rule : all()) {
        if (rule->code == code)
            return rule;
    }
    return nullptr;
}

} // namespace Keldict::Rules
