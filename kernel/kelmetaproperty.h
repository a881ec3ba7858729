#pragma once

#include "kernel/kelglobal.h"
#include "kernel/kelvariant.h"

#include <string>

namespace Ombrin {

class CkelObject;

/// A property of objects, reached by its name.
///
/// Every object has "name" (read and write) and "className" (read only); a class offers more by overriding
/// CkelObject::kel_metacall.
/// @ingroup kernel
class KEL_EXPORT CkelMetaProperty
{
public:
    /// What CkelObject::kel_metacall is asked to do. `args[0]` points to the CkelVariant that is read into or written.
    enum Call : int
    {
        ReadProperty = 1, ///< the variant takes the property's value
        WriteProperty = 2 ///< the property takes the variant's value
    };

    /// `name` belongs to the property, not to one object or class.
    explicit CkelMetaProperty(std::string name);

    /// The name given to the constructor.
    const std::string& name() const { return m_name; }

    /// The property's value; an invalid variant when `object` has no such property.
    CkelVariant read(CkelObject& object) const;

    /// False when `object` has no such property or it cannot be written.
    bool write(CkelObject& object, const CkelVariant& value) const;

private:
    bool isCallable() const;

    std::string m_name;
};

} // namespace Ombrin
