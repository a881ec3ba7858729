#pragma once

#include <string_view>
#include <vector>

namespace Keldict {

enum class Severity
{
    Warning, ///< the device would do something silent
    Error    ///< the device would stop, or an item would be lost
};

/// A kind of finding. The code is stable: people write it into scripts and dictionaries.
struct Rule
{
    std::string_view code;
    Severity severity; ///< as a rule; a finding may weigh more
    std::string_view summary;
};

namespace Rules {

// The file
extern const Rule emptyFile;
extern const Rule byteOrderMark;
extern const Rule malformedJson;
extern const Rule rootNotObject;
extern const Rule missingRoot;
extern const Rule rootNotArray;
extern const Rule duplicateRoot;
extern const Rule elementNotObject;
extern const Rule notADatabase;
extern const Rule noTable;
extern const Rule notATable;
extern const Rule tooFewColumns;
extern const Rule savedFile;
extern const Rule fileName;
extern const Rule noItems;
extern const Rule nulByte;
extern const Rule inheritedNames;
extern const Rule columnName;
extern const Rule wrongAcceptance;

// Items
extern const Rule missingId;
extern const Rule unusableId;
extern const Rule duplicateId;
extern const Rule duplicateName;
extern const Rule changedId;
extern const Rule largeId;
extern const Rule emptyName;
extern const Rule similarName;

// Fields
extern const Rule wrongType;
extern const Rule byteOverflow;
extern const Rule inheritedField;
extern const Rule unknownKey;
extern const Rule duplicateKey;
extern const Rule nulInText;
extern const Rule invalidUtf8;

// Values
extern const Rule unknownType;
extern const Rule typeNotRestored;
extern const Rule unconvertibleValue;
extern const Rule changedValue;
extern const Rule roundedWhenSaved;
extern const Rule outOfBounds;
extern const Rule boundsExchanged;
extern const Rule textNotRestored;

/// All of them, in this order.
const std::vector<const Rule*>& all();

/// Null when there is no such code.
const Rule* find(std::string_view code);

} // namespace Rules

} // namespace Keldict
