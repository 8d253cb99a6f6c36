// Published examples (tests/data/crypto/vectors.json) and Wycheproof files for the primitives.
#pragma once

#include <string>

#include "base/crypto/Hash.h"
#include "tests/fixtures/TestData.h"
#include "tests/fixtures/Wycheproof.h"

namespace tv::test {

// Calls each(vector) for every example of the primitive.
inline void forEachVector(const char* primitive, const std::function<void(const Json&)>& each) {
    static const Json data = *Json::load(testDataPath("crypto/vectors.json"));
    ASSERT_FALSE(data[primitive].items().empty());
    for (const Json& vector : data[primitive].items()) {
        SCOPED_TRACE(std::string(primitive) + ", " + vector["name"].text());
        each(vector);
    }
}

// Every test of a file, with what ran and what did not; skips where there are no such files.
inline void runWycheproof(const std::string& file, const char* form,
                          const std::function<void(const Json& group, const Json& test)>& each) {
    const auto count = forEachWycheproof(file, [&](const Json& group, const Json& test) {
        each(group, test);
        return true;
    });
    if (!count) GTEST_SKIP() << "no vectors beside the repository: " << file;
    printCount(file + " " + form, *count);
}

inline bool isValid(const Json& test) {
    return test["result"].text() == "valid";
}

inline crypto::HashId hashNamed(std::string_view name) {
    using crypto::HashId;
    if (name == "md5") return HashId::kMd5;
    if (name == "sha1") return HashId::kSha1;
    if (name == "sha256" || name == "SHA-256") return HashId::kSha256;
    if (name == "sha384" || name == "SHA-384") return HashId::kSha384;
    EXPECT_TRUE(name == "sha512" || name == "SHA-512") << name;
    return HashId::kSha512;
}

}  // namespace tv::test
