// Published examples, made by hand or of Project Wycheproof, and the forms that they are run with.
#pragma once

#include <functional>

#include "base/Ascii.h"
#include "base/crypto/AesGcm.h"
#include "base/crypto/ChaCha20Poly1305.h"
#include "base/crypto/Hash.h"
#include "base/crypto/X25519.h"
#include "tests/fixtures/FormTest.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/fixtures/Json.h"
#include "tests/fixtures/TestBytes.h"

namespace tv::test {

TV_FORMS(crypto::AesForm, crypto::aesForms, &Table::encrypt, &Table::decrypt);
TV_FORMS(crypto::GcmForm, crypto::gcmForms, &Table::encrypt, &Table::decrypt);
TV_FORMS(crypto::ChaChaForm, crypto::chaChaForms, &Table::apply, &Table::absorb);
TV_FORMS(crypto::Sha1Form, crypto::sha1Forms, &Table::compress);
TV_FORMS(crypto::Sha256Form, crypto::sha256Forms, &Table::compress);
TV_FORMS(crypto::X25519Form, crypto::x25519Forms, &Table::multiply);

using Bytes = std::vector<uint8_t>;

// A random source that hands out the same bytes over and over; without any it fails.
inline crypto::RandomSource repeating(Bytes bytes) {
    return [bytes](std::span<uint8_t> out) {
        for (size_t i = 0; i < out.size() && !bytes.empty(); ++i) {
            out[i] = bytes[i % bytes.size()];
        }
        return !bytes.empty();
    };
}

// One example: what it holds stands in the test, in its group or at the head of the file.
struct Vector {
    const Json &test, &group, &file;

    const Json& operator[](std::string_view name) const {
        return test.has(name) ? test[name] : group.has(name) ? group[name] : file[name];
    }
    Bytes bytes(std::string_view name) const { return bytesOfHex((*this)[name].text()); }
    size_t number(std::string_view name) const {
        return static_cast<size_t>((*this)[name].number());
    }
    bool isValid() const { return !test.has("result") || test["result"].text() == "valid"; }
    crypto::HashId hash() const {  // of sha256, SHA-256, HMACSHA256
        const char* const names[] = {"md5", "sha1", "sha256", "sha384", "sha512"};  // as in HashId
        const bool named = test.has("sha") || group.has("sha");
        std::string name = asciiLower((*this)[named ? "sha" : "algorithm"].text());
        std::erase(name, '-');
        const auto found = std::ranges::find_if(names, [&](auto n) { return name.ends_with(n); });
        if (found == std::end(names)) throw std::runtime_error("no hash: " + name);
        return static_cast<crypto::HashId>(found - names);
    }
    // Of the message; "md5sha1" has one behind the other.
    Bytes digest() const {
        std::string digits = hexLower(crypto::Hash::of(hash(), bytes("msg")));
        if ((*this)["sha"].text() == "md5sha1") {
            digits = hexLower(crypto::Md5::of(bytes("msg"))) + digits;
        }
        return bytesOfHex(digits);
    }
};
using Check = std::function<void(const Vector&)>;

// Beside the repository; where it is not, tests that want it are skipped.
const std::string kWycheproof = "../../../shared/vectors/wycheproof/";

// Every test of a file.
inline void forEachTest(const std::string& path, const Check& check) {
    const auto file = Json::load(testDataPath(path));
    if (!file && path.starts_with(kWycheproof)) GTEST_SKIP() << "no vectors beside the repository";
    int run = 0;
    for (const Json& group : file.value()["testGroups"].items()) {
        for (const Json& test : group["tests"].items()) {
            SCOPED_TRACE(path + " test " + test["tcId"].text());
            check({test, group, *file});
            ++run;
        }
    }
    EXPECT_EQ((*file)["numberOfTests"].number(), run);
}

// Every example of vectors.json under that name, then of the Wycheproof files.
inline void forEachVector(const std::string& name, const std::vector<std::string>& files,
                          const Check& check) {
    static const Json published = Json::load(testDataPath("crypto/vectors.json")).value();
    ASSERT_FALSE(published[name].items().empty());
    for (const Json& row : published[name].items()) {
        SCOPED_TRACE(name + ", " + row["name"].text());
        check({row, row, row});
    }
    for (const std::string& file : files) {
        forEachTest(kWycheproof + file + "_test.json", check);
    }
}

}  // namespace tv::test
