// Credentials cut out of text that is about to be shown.
#include "core/redact.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

TEST(Redact, KeyShapedWordsGoWithoutBeingKnown) {
    EXPECT_EQ(Redact::secrets("key sk-or-v1-0123456789abcdef0123 was refused"),
              "key [redacted] was refused");
    EXPECT_EQ(Redact::secrets("team xai-AbCdEfGhIjKlMnOpQr failed"), "team [redacted] failed");
}

TEST(Redact, CredentialFieldsLoseTheirValuesInHeaderJsonAndQueryForms) {
    EXPECT_EQ(Redact::secrets("Authorization: Bearer abc.def-ghi"), "Authorization: [redacted]");
    EXPECT_EQ(Redact::secrets(R"({"x-api-key":"k123456","ok":1})"),
              R"({"x-api-key":"[redacted]","ok":1})");
    EXPECT_EQ(Redact::secrets("a=1&access_token=zzz&b=2"), "a=1&access_token=[redacted]&b=2");
    EXPECT_EQ(Redact::secrets("Cookie: session=abc; other=def\nnext"), "Cookie: [redacted]\nnext");
}

TEST(Redact, WhatWasSentGoesWhereverItStands) {
    const std::string sent[] = {"plain-team-identifier"};
    EXPECT_EQ(Redact::secrets("no team plain-team-identifier here", sent),
              "no team [redacted] here");
}

TEST(Redact, OrdinaryTextIsLeftAlone) {
    const std::string text = "tokenizer: 5, monkey=3, sk-short, the key was rejected (HTTP 401).";
    EXPECT_EQ(Redact::secrets(text), text);
}

}  // namespace
}  // namespace usagekit
