// JSON objects: what is read of them and what is none.
#include "base/Json.h"

#include <gtest/gtest.h>

#include <sstream>

namespace tv {
namespace {

TEST(Json, membersAreReadInOrder) {
    const auto members = readJsonObject(
        " {\"a\" : \"x\\\"\\\\\\/\\b\\f\\n\\r\\t\", \"b\":-1.5e+3,\"c\":true,\r\n\t\"d\":null,"
        "\"e\":{\"a\":[{}]}, \"f\":[1, \"]\"],\"\\u00e4\\ud83d\\ude00\":\"\\u0041\",\"\":0} ");
    ASSERT_TRUE(members);
    std::string all;
    for (const JsonMember& member : *members) {
        all += member.name + "=" + std::string(member.text()) + ";";
    }
    EXPECT_EQ(all,
              "a=x\"\\/\b\f\n\r\t;b=-1.5e+3;c=true;d=null;e={\"a\":[{}]};f=[1, \"]\"];"
              "\xC3\xA4\xF0\x9F\x98\x80=A;=0;");
    EXPECT_EQ(findMember(*members, "c")->kind, JsonMember::Kind::Bool);
    EXPECT_EQ(findMember(*members, "g"), nullptr);
}

TEST(Json, whatIsNoObject) {
    const auto nested = [](size_t depth) {
        return "{\"a\":" + std::string(depth - 1, '[') + std::string(depth - 1, ']') + "}";
    };
    EXPECT_TRUE(readJsonObject(nested(kMaxJsonDepth)));
    EXPECT_FALSE(readJsonObject(nested(kMaxJsonDepth + 1)) || readJsonObject(nested(60000)));
    const std::string whole = "{\"a\":[1,{\"b\":\"\\u00e4\"}],\"c\":false}";
    ASSERT_TRUE(readJsonObject(whole));
    for (size_t i = 0; i < whole.size(); ++i) {
        EXPECT_FALSE(readJsonObject(whole.substr(0, i))) << i;
    }
    for (const char* text : {"[]", "1", "{} {}", "{,}", "{a:1}", "{\"a\":1 \"b\":2}"}) {
        EXPECT_FALSE(readJsonObject(text)) << text;
    }
    std::istringstream values(
        "1, 01 1. .5 +1 1e tru 'x' \"\\x\" \"\\u12g4\" \"\\ud83d\" \"\\ude00\" \"\\ud83d\\u0041\" "
        "[1,] \"\xFF\" 1,\"\\u0061\":2 \"\1\" {\"b\"} {\"b\":1,}");
    for (std::string value; values >> value;) {
        EXPECT_FALSE(readJsonObject("{\"a\":" + value + "}")) << value;
    }
    EXPECT_FALSE(readJsonObject(std::string_view("{\"a\":\"\0\"}", 9)));
}

}  // namespace
}  // namespace tv
