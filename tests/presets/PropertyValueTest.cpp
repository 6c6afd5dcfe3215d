#include "persistence/PropertyValue.h"

#include <gtest/gtest.h>

namespace varitap {
namespace {

// Numbers share one cell and are not converted; other kinds read as neutral values.
TEST(PropertyValueTest, NumbersShareOneCellAndWrongKindsGiveNeutralResults) {
    auto one = RefPtr<PropertyValue>::adopt(PropertyValue::makeFloat("f", 1.0));
    EXPECT_EQ(one->type(), PropertyType::Float);
    EXPECT_EQ(one->getLong(), 1065353216);  // the bits of 1.0f
    auto number = RefPtr<PropertyValue>::adopt(PropertyValue::makeLong("n", 1));
    EXPECT_EQ(number->getFloat(), 1.401298464324817e-45);  // the smallest subnormal
    // Stored in single precision.
    EXPECT_EQ(RefPtr<PropertyValue>::adopt(PropertyValue::makeFloat("t", 0.1))->getFloat(), static_cast<double>(0.1f));

    auto text = RefPtr<PropertyValue>::adopt(PropertyValue::makeString("s", "hello"));
    const std::string& empty = number->getString();
    EXPECT_TRUE(empty.empty());
    EXPECT_EQ(&empty, &one->getString());  // one shared empty string
    EXPECT_EQ(number->getArray(), nullptr);
    EXPECT_EQ(text->getFloat(), 0.0);
    EXPECT_EQ(text->getLong(), 0);
    EXPECT_EQ(text->getArray(), nullptr);
    number->setString("ignored");
    EXPECT_EQ(number->getLong(), 1);
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
