#include "persistence/PropertyValue.h"

#include <gtest/gtest.h>

namespace varitap {
namespace {

TEST(PropertyValueTest, NumbersShareOneCellAndAreNotConverted) {
    auto one = RefPtr<PropertyValue>::adopt(PropertyValue::makeFloat("f", 1.0));
    EXPECT_EQ(one->type(), PropertyType::Float);
    EXPECT_EQ(one->getLong(), 1065353216);  // the bits of 1.0f
    auto bits = RefPtr<PropertyValue>::adopt(PropertyValue::makeLong("l", 1));
    EXPECT_EQ(bits->getFloat(), 1.401298464324817e-45);  // the smallest subnormal
    EXPECT_EQ(bits->getLong(), 1);

    // Stored in single precision.
    auto tenth = RefPtr<PropertyValue>::adopt(PropertyValue::makeFloat("t", 0.1));
    EXPECT_EQ(tenth->getFloat(), static_cast<double>(0.1f));
}

TEST(PropertyValueTest, WrongKindsGiveNeutralResults) {
    auto number = RefPtr<PropertyValue>::adopt(PropertyValue::makeLong("n", 5));
    auto text = RefPtr<PropertyValue>::adopt(PropertyValue::makeString("s", "hello"));
    const std::string& empty1 = number->getString();
    auto other = RefPtr<PropertyValue>::adopt(PropertyValue::makeFloat("x", 2.0));
    const std::string& empty2 = other->getString();
    EXPECT_TRUE(empty1.empty());
    EXPECT_EQ(&empty1, &empty2);  // one shared empty string
    EXPECT_EQ(number->getArray(), nullptr);
    EXPECT_EQ(text->getFloat(), 0.0);
    EXPECT_EQ(text->getLong(), 0);
    EXPECT_EQ(text->getArray(), nullptr);

    number->setString("ignored");
    EXPECT_EQ(number->getLong(), 5);
    EXPECT_TRUE(number->getString().empty());
}

TEST(PropertyValueTest, ArraySharesElementsAndOutlivesItsSource) {
    PropertyList source;
    PropertyValue* a = PropertyValue::makeLong("a", 1);
    PropertyValue* b = PropertyValue::makeString("b", "two");
    PropertyValue* c = PropertyValue::makeFloat("c", 3.0);
    for (PropertyValue* v : {a, b, c}) source.append(v);

    auto array = RefPtr<PropertyValue>::adopt(PropertyValue::makeArray("arr", source));
    EXPECT_EQ(a->retainCount(), 3);  // creator, source, array
    source.removeAll();
    for (PropertyValue* v : {a, b, c}) v->release();

    ASSERT_NE(array->getArray(), nullptr);
    const PropertyList& list = *array->getArray();
    ASSERT_EQ(list.count(), 3u);
    EXPECT_EQ(list.at(0), a);  // shared, not copied
    EXPECT_EQ(list.at(1)->getString(), "two");
    EXPECT_EQ(list.at(2)->getFloat(), 3.0);
    EXPECT_EQ(a->retainCount(), 1);
}

TEST(PropertyValueTest, LookupTakesTheFirstExactKey) {
    PropertyDictionary dictionary;
    for (auto* v : {PropertyValue::makeLong("Key", 1), PropertyValue::makeLong("key", 2),
                    PropertyValue::makeLong("key", 3), PropertyValue::makeLong("", 4)}) {
        dictionary.list.append(v);
        v->release();
    }
    ASSERT_NE(dictionary.findProperty("key"), nullptr);
    EXPECT_EQ(dictionary.findProperty("key")->getLong(), 2);
    EXPECT_EQ(dictionary.findProperty("Key")->getLong(), 1);
    EXPECT_EQ(dictionary.findProperty("")->getLong(), 4);
    EXPECT_EQ(dictionary.findProperty("ke"), nullptr);
    EXPECT_EQ(dictionary.findProperty("key "), nullptr);
    EXPECT_EQ(dictionary.list.findProperty(std::string("key"))->getLong(), 2);
    EXPECT_EQ(dictionary.list.count(), 4u);
}

}  // namespace
}  // namespace varitap
