#include <gtest/gtest.h>

#include "appcfg/error.h"
#include "reply.h"
#include "support/scripted_peer.h"

namespace appcfg {
namespace {

using Support::FragmentPayload;
using Support::ValuesPayload;
using Values = std::vector<std::string>;

// In memory of its exact size, so that a sanitizer sees a read beyond it.
Values Parse(const std::string& content, size_t expected) {
    const std::vector<char> exact(content.begin(), content.end());
    return ParseValues(exact.data(), exact.size(), expected);
}

std::string Fragment(const std::string& content) {
    const std::vector<char> exact(content.begin(), content.end());
    return ParseFragment(exact.data(), exact.size());
}

std::string Words(std::initializer_list<uint32_t> words) {
    std::string bytes;
    for (const uint32_t word : words) {
        bytes += Support::Bytes(word);
    }
    return bytes;
}

TEST(ValuesOfAReply, KeepTheirOrderLengthsAndBytes) {
    const Values values = {"", "a", std::string("x\0y", 3), std::string(70000, 'z'), ""};
    EXPECT_EQ(Parse(ValuesPayload(values), values.size()), values);
    EXPECT_EQ(Parse(ValuesPayload({}), 0), Values());
}

TEST(ValuesOfAReply, AreRefusedWhenTheLengthsDoNotAddUp) {
    const std::string hostile[] = {"",
                                   {1, 0, 0},
                                   Words({1}),
                                   Words({1, 1}),
                                   Words({1, 0xFFFFFFFF}),
                                   Words({1, 0xFFFFFFFC, 0}),
                                   Words({0xFFFFFFFF, 0}),
                                   Words({2, 0, 0}),
                                   Words({0}),
                                   ValuesPayload({"a"}) + "b"};
    for (const std::string& content : hostile) {
        EXPECT_THROW(Parse(content, 1), ConnectionError) << content.size();
    }
    EXPECT_THROW(ParseValues(nullptr, 0, 1), ConnectionError);
}

TEST(ValuesOfAReply, AreRefusedAtEveryCut) {
    const std::string whole = ValuesPayload({"first", "", "third"});
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_THROW(Parse(whole.substr(0, size), 3), ConnectionError);
    }
}

TEST(AFragmentOfAReply, IsWhatLiesBetweenHeadAndNul) {
    for (const std::string& text : {std::string(), std::string("<a/>"), std::string(100000, 'x')}) {
        EXPECT_EQ(Fragment(FragmentPayload(text)), text);
    }
}

TEST(AFragmentOfAReply, IsRefusedWhenItsLengthIsNotItsSize) {
    const std::string head(200, '\0');
    for (const uint32_t dataLen : {0U, 1U, 4U, 6U, 0xFFFFFFFFU}) {
        const std::string content = head + Words({dataLen}) + "abcd" + '\0';
        EXPECT_THROW(Fragment(content), ConnectionError) << dataLen;
    }
    EXPECT_THROW(Fragment(head + Words({5}) + "abcde"), ConnectionError) << "it does not end";
    for (size_t size = 0; size <= 204; ++size) {
        EXPECT_THROW(Fragment(std::string(size, '\0')), ConnectionError) << size;
    }
}

} // namespace
} // namespace appcfg
