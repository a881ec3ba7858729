#include "kernel/kelmetaproperty.h"

#include "kernel/kelobject.h"

#include <utility>

namespace Ombrin {

CkelMetaProperty::CkelMetaProperty(std::string name) : m_name(std::move(name)) {}

CkelVariant CkelMetaProperty::read(CkelObject& object) const
{
    CkelVariant value;
    void* args[] = {&value};
    return isCallable() && object.kel_metacall(ReadProperty, m_name.c_str(), args) ? value : CkelVariant();
}

bool CkelMetaProperty::write(CkelObject& object, const CkelVariant& value) const
{
    CkelVariant copy(value);
    void* args[] = {&copy};
    return isCallable() && object.kel_metacall(WriteProperty, m_name.c_str(), args);
}

bool CkelMetaProperty::isCallable() const
{
    return m_name.find('\0') == std::string::npos; // the name is handed over as a C string
}

} // namespace Ombrin
