#include "kernel/kelmetaproperty.h"

#include "kernel/kelobject.h"

#include <gtest/gtest.h>

#include <string>

using Ombrin::CkelMetaProperty;
using Ombrin::CkelObject;
using Ombrin::CkelVariant;

namespace {

/// Offers "level" for reading and writing and "odd", which spoils what it is given and then refuses.
class Tank : public CkelObject
{
public:
    Tank() { storeherits("Tank"); }

    bool kel_metacall(CkelMetaProperty::Call call, const char* name, void** args) override
    {
        auto* const value = static_cast<CkelVariant*>(args[0]);
        const std::string property = name;
        if (property == "odd") {
            *value = "spoilt";
            return false;
        }
        if (property != "level")
            return CkelObject::kel_metacall(call, name, args);
        if (call == CkelMetaProperty::ReadProperty) {
            *value = level;
            return true;
        }
        level = *value;
        *value = "taken";
        return true;
    }

    void setName(const std::string& name) override { CkelObject::setName("tank " + name); }

    CkelVariant level = 1.5;
};

} // namespace

TEST(MetaProperty, CallCodesAreFixed)
{
    EXPECT_EQ(CkelMetaProperty::ReadProperty, 1);
    EXPECT_EQ(CkelMetaProperty::WriteProperty, 2);
}

TEST(MetaProperty, HasTheNameItWasGiven)
{
    EXPECT_EQ(CkelMetaProperty("level").name(), "level");
    EXPECT_EQ(CkelMetaProperty("").name(), "");
}

TEST(MetaProperty, ReadsTheNameOfAnObject)
{
    CkelObject object;
    EXPECT_EQ(CkelMetaProperty("name").read(object).type(), CkelVariant::String);
    EXPECT_EQ(CkelMetaProperty("name").read(object).toStdString(), "");
    object.setName("pump");
    EXPECT_EQ(CkelMetaProperty("name").read(object).toStdString(), "pump");
}

TEST(MetaProperty, WritesTheNameOfAnObject)
{
    CkelObject object;
    EXPECT_TRUE(CkelMetaProperty("name").write(object, "pump"));
    EXPECT_EQ(object.name(), "pump");
    EXPECT_TRUE(CkelMetaProperty("name").write(object, 12));
    EXPECT_EQ(object.name(), "12");
}

TEST(MetaProperty, WritingTheNameIsSettingTheName)
{
    Tank tank;
    EXPECT_TRUE(CkelMetaProperty("name").write(tank, "one"));
    EXPECT_EQ(tank.name(), "tank one");
}

TEST(MetaProperty, ReadsTheNewestClassName)
{
    CkelObject object;
    Tank tank;
    EXPECT_EQ(CkelMetaProperty("className").read(object).toStdString(), "CkelObject");
    EXPECT_EQ(CkelMetaProperty("className").read(tank).toStdString(), "Tank");
}

TEST(MetaProperty, ClassNameCannotBeWritten)
{
    Tank tank;
    EXPECT_FALSE(CkelMetaProperty("className").write(tank, "Pump"));
    EXPECT_EQ(tank.className(), "Tank");
}

TEST(MetaProperty, UnknownPropertyReadsAsInvalid)
{
    CkelObject object;
    for (const char* const name : {"level", "", "Name", "name ", "classname"})
        EXPECT_TRUE(CkelMetaProperty(name).read(object).isNull()) << name;
}

TEST(MetaProperty, UnknownPropertyCannotBeWritten)
{
    CkelObject object;
    object.setName("pump");
    for (const char* const name : {"level", "", "Name", "name ", "classname"})
        EXPECT_FALSE(CkelMetaProperty(name).write(object, 5)) << name;
    EXPECT_EQ(object.name(), "pump");
}

TEST(MetaProperty, NulInsideANameIsNotItsEnd)
{
    CkelObject object;
    object.setName("pump");
    const CkelMetaProperty property(std::string("name\0x", 6));
    EXPECT_TRUE(property.read(object).isNull());
    EXPECT_FALSE(property.write(object, "other"));
    EXPECT_EQ(object.name(), "pump");
}

TEST(MetaProperty, ReachesWhatAClassOffers)
{
    Tank tank;
    const CkelMetaProperty level("level");
    EXPECT_EQ(level.read(tank).toDouble(), 1.5);
    EXPECT_TRUE(level.write(tank, "high"));
    EXPECT_EQ(tank.level.toStdString(), "high");
    EXPECT_EQ(level.read(tank).toStdString(), "high");
}

TEST(MetaProperty, ClassThatOffersMoreKeepsWhatItsBaseOffers)
{
    Tank tank;
    CkelMetaProperty("name").write(tank, "one");
    EXPECT_EQ(CkelMetaProperty("name").read(tank).toStdString(), "tank one");
    EXPECT_TRUE(CkelMetaProperty("other").read(tank).isNull());
}

TEST(MetaProperty, RefusedReadGivesInvalidWhateverTheObjectLeft)
{
    Tank tank;
    EXPECT_TRUE(CkelMetaProperty("odd").read(tank).isNull());
}

TEST(MetaProperty, WritingLeavesTheCallersValue)
{
    Tank tank;
    const CkelVariant value(7);
    EXPECT_TRUE(CkelMetaProperty("level").write(tank, value));
    EXPECT_EQ(value.toInt(), 7);
    EXPECT_EQ(value.type(), CkelVariant::Int);
    EXPECT_FALSE(CkelMetaProperty("odd").write(tank, value));
    EXPECT_EQ(value.toInt(), 7);
}

TEST(MetaProperty, CallWithoutNameOrValueIsRefused)
{
    CkelObject object;
    CkelVariant value;
    void* args[] = {&value};
    void* noValue[] = {nullptr};
    EXPECT_FALSE(object.kel_metacall(CkelMetaProperty::ReadProperty, nullptr, args));
    EXPECT_FALSE(object.kel_metacall(CkelMetaProperty::ReadProperty, "name", nullptr));
    EXPECT_FALSE(object.kel_metacall(CkelMetaProperty::WriteProperty, "name", noValue));
}

TEST(MetaProperty, UnknownCallIsRefused)
{
    CkelObject object;
    CkelVariant value("other");
    void* args[] = {&value};
    EXPECT_FALSE(object.kel_metacall(static_cast<CkelMetaProperty::Call>(0), "name", args));
    EXPECT_FALSE(object.kel_metacall(static_cast<CkelMetaProperty::Call>(3), "name", args));
    EXPECT_EQ(object.name(), "");
}
