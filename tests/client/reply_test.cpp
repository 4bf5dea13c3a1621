#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "appcfg/error.h"
#include "fake_service.h"
#include "reply.h"

namespace appcfg {
namespace {

using test::AppendWord;
using test::Bytes;
using test::FragmentPayload;
using test::ValuesPayload;
using Values = std::vector<std::string>;

// In memory of its exact size, so that a sanitizer sees a read beyond it.
Values Parse(const Bytes& content, size_t expected) {
    const auto exact = std::make_unique<uint8_t[]>(content.size());
    std::copy(content.begin(), content.end(), exact.get());
    return ParseValues(exact.get(), content.size(), expected);
}

Bytes Words(std::initializer_list<uint32_t> words) {
    Bytes bytes;
    for (const uint32_t word : words) {
        AppendWord(bytes, word);
    }
    return bytes;
}

TEST(ValuesOfAReply, KeepTheirOrderLengthsAndBytes) {
    const Values values = {"", "a", std::string("x\0y", 3), std::string(70000, 'z'), ""};
    EXPECT_EQ(Parse(ValuesPayload(values), values.size()), values);
    EXPECT_EQ(Parse(ValuesPayload({}), 0), Values());
}

TEST(ValuesOfAReply, AreRefusedWhenTheLengthsDoNotAddUp) {
    Bytes surplus = ValuesPayload({"a"});
    surplus.push_back('b');
    const Bytes hostile[] = {
        {},
        {1, 0, 0},
        Words({1}),
        Words({1, 1}),
        Words({1, 0xFFFFFFFF}),
        Words({1, 0xFFFFFFFC, 0}),
        Words({0xFFFFFFFF, 0}),
        Words({2, 0, 0}),
        Words({0}),
        surplus,
    };
    for (const Bytes& content : hostile) {
        EXPECT_THROW(Parse(content, 1), ConnectionError) << content.size();
    }
    EXPECT_THROW(ParseValues(nullptr, 0, 1), ConnectionError);
}

TEST(ValuesOfAReply, AreRefusedAtEveryCut) {
    const Bytes whole = ValuesPayload({"first", "", "third"});
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_THROW(Parse(Bytes(whole.begin(), whole.begin() + static_cast<long>(size)), 3),
                     ConnectionError);
    }
}

TEST(AFragmentOfAReply, IsWhatLiesBetweenHeadAndNul) {
    for (const std::string& text : {std::string(), std::string("<a/>"), std::string(100000, 'x')}) {
        const Bytes content = FragmentPayload(text);
        EXPECT_EQ(ParseFragment(content.data(), content.size()), text);
    }
}

TEST(AFragmentOfAReply, IsRefusedWhenItsLengthIsNotItsSize) {
    for (const uint32_t dataLen : {0U, 1U, 4U, 6U, 0xFFFFFFFFU}) {
        Bytes content = FragmentPayload("abcd");
        content.resize(200);
        AppendWord(content, dataLen);
        content.insert(content.end(), {'a', 'b', 'c', 'd', 0});
        EXPECT_THROW(ParseFragment(content.data(), content.size()), ConnectionError) << dataLen;
    }
    Bytes open = FragmentPayload("abcd");
    open.back() = 'e';
    EXPECT_THROW(ParseFragment(open.data(), open.size()), ConnectionError);
    const Bytes head(204);
    for (size_t size = 0; size <= head.size(); ++size) {
        const Bytes cut(head.begin(), head.begin() + static_cast<long>(size));
        EXPECT_THROW(ParseFragment(cut.data(), cut.size()), ConnectionError) << size;
    }
}

} // namespace
} // namespace appcfg
