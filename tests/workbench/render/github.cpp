#include "workbench/render/github.hpp"

#include <gtest/gtest.h>

namespace {

using vorna::workbench::github_annotation;

TEST(GithubAnnotation, LeavesOutTheFileAndTheLineThatAreNotGiven)
{
    EXPECT_EQ(github_annotation("notice", "k+0x4", "text"), "::notice title=k+0x4::text\n");
    EXPECT_EQ(github_annotation("error", "k", "text", "base", 7), "::error file=base,line=7,title=k::text\n");
}

TEST(GithubAnnotation, EscapesWhatWouldEndAPropertyOrTheMessage)
{
    EXPECT_EQ(github_annotation("error", "a,b:c%\n", "d,e:f%\r\n", "g:h"),
              "::error file=g%3Ah,title=a%2Cb%3Ac%25%0A::d,e:f%25%0D%0A\n");
}

} // namespace
