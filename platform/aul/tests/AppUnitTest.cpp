// SPDX-License-Identifier: Apache-2.0
#include "AppUnit.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace {

using aul::appIdOfCgroups;
using aul::appIdOfPath;
using namespace std::string_literals;

const std::optional<std::string> kNothing;

// Every byte as systemd escapes it.
std::string escaped(unsigned int byte) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    return {'\\', 'x', kDigits[byte / 16], kDigits[byte % 16]};
}

TEST(AppUnitTest, ThePartBeforeTheRandomOneNamesTheApplicationOfAScope) {
    EXPECT_EQ(appIdOfPath("/app-org.example.Viewer-12.scope"), "org.example.Viewer");
    EXPECT_EQ(appIdOfPath("/app-shell-org.example.Viewer-12.scope"), "org.example.Viewer");
    EXPECT_EQ(appIdOfPath("/app-my-shell-org.example.Viewer-12.scope"), "org.example.Viewer");
}

TEST(AppUnitTest, TheOnlyPartOfAScopeNamesTheApplication) {
    EXPECT_EQ(appIdOfPath("/app-org.example.Viewer.scope"), "org.example.Viewer");
}

TEST(AppUnitTest, TheLastPartNamesTheApplicationOfAService) {
    EXPECT_EQ(appIdOfPath("/app-org.example.Viewer.service"), "org.example.Viewer");
    EXPECT_EQ(appIdOfPath("/app-shell-org.example.Viewer.service"), "org.example.Viewer");
    EXPECT_EQ(appIdOfPath("/app-my-shell-org.example.Viewer.service"), "org.example.Viewer");
}

TEST(AppUnitTest, WhatFollowsTheFirstAtOfAServiceIsRandom) {
    EXPECT_EQ(appIdOfPath("/app-org.example.Viewer@12.service"), "org.example.Viewer");
    EXPECT_EQ(appIdOfPath("/app-shell-org.example.Viewer@12.service"), "org.example.Viewer");
    EXPECT_EQ(appIdOfPath("/app-org.example.Viewer@1-2--@3.x\\y.service"), "org.example.Viewer");
}

TEST(AppUnitTest, AnAtInAScopeIsALetterLikeAnyOther) {
    EXPECT_EQ(appIdOfPath("/app-viewer@home-1.scope"), "viewer@home");
    EXPECT_EQ(appIdOfPath("/app-viewer@.scope"), "viewer@");
}

TEST(AppUnitTest, EscapesOfEveryByteButZeroAreUndone) {
    for (unsigned int byte = 1; byte < 256; ++byte) {
        const std::string path = "/app-a" + escaped(byte) + "b-1.scope";

        const std::optional<std::string> id = appIdOfPath(path);

        EXPECT_EQ(id, "a"s + static_cast<char>(byte) + "b") << path;
    }
}

TEST(AppUnitTest, EscapesAreUndoneOnce) {
    EXPECT_EQ(appIdOfPath("/app-a\\x5cx2d-1.scope"), "a\\x2d");
    EXPECT_EQ(appIdOfPath("/app-a\\x2d\\x2d.service"), "a--");
    EXPECT_EQ(appIdOfPath("/app-\\x2D-1.scope"), "-");
}

TEST(AppUnitTest, AnEscapedZeroMakesAUnitNone) {
    EXPECT_EQ(appIdOfPath("/app-a\\x00b-1.scope"), kNothing);
    EXPECT_EQ(appIdOfPath("/app-\\x00.service"), kNothing);
}

TEST(AppUnitTest, AZeroMakesAUnitNone) {
    EXPECT_EQ(appIdOfPath("/app-a\0b-1.scope"s), kNothing);
}

TEST(AppUnitTest, AMalformedEscapeInTheIdMakesAUnitNone) {
    for (const char* const id : {"\\", "a\\", "\\x", "\\x2", "\\x2g", "\\xg2", "\\x 2", "\\x+2", "\\x0x",
                                 "\\n", "\\X2d", "\\055", "\\\\x2d", "\\x2d\\"}) {
        EXPECT_EQ(appIdOfPath("/app-"s + id + "-1.scope"), kNothing) << id;
        EXPECT_EQ(appIdOfPath("/app-"s + id + ".scope"), kNothing) << id;
        EXPECT_EQ(appIdOfPath("/app-"s + id + ".service"), kNothing) << id;
    }
}

TEST(AppUnitTest, EscapesOutsideTheIdAreNotLookedAt) {
    EXPECT_EQ(appIdOfPath("/app-\\q-viewer-\\x.scope"), "viewer");
    EXPECT_EQ(appIdOfPath("/app-\\x00-viewer@\\x00.service"), "viewer");
}

TEST(AppUnitTest, AnEmptyPartMakesAUnitNone) {
    for (const char* const parts : {"", "-", "--", "-a", "a-", "-a-1", "a--1", "a-1-", "a--b-1", "-a-b-1"}) {
        EXPECT_EQ(appIdOfPath("/app-"s + parts + ".scope"), kNothing) << parts;
        EXPECT_EQ(appIdOfPath("/app-"s + parts + ".service"), kNothing) << parts;
        EXPECT_EQ(appIdOfPath("/app-"s + parts + "@1.service"), kNothing) << parts;
    }
}

TEST(AppUnitTest, AnEmptyRandomPartMakesAServiceNone) {
    EXPECT_EQ(appIdOfPath("/app-viewer@.service"), kNothing);
    EXPECT_EQ(appIdOfPath("/app-@.service"), kNothing);
}

TEST(AppUnitTest, OnlyScopesAndServicesWhosePrefixIsAppCount) {
    for (const char* const unit : {"app.slice",
                                   "app-viewer.slice",
                                   "app-viewer-1.slice",
                                   "app-viewer-1",
                                   "app-viewer-1.socket",
                                   "app-viewer-1.scope ",
                                   "app-viewer-1.SCOPE",
                                   "app-viewer-1scope",
                                   "App-viewer-1.scope",
                                   " app-viewer-1.scope",
                                   "app.scope",
                                   "app.service",
                                   "app@1.service",
                                   "app_viewer-1.scope",
                                   "application-viewer-1.scope",
                                   "xapp-viewer-1.scope",
                                   "session-2.scope",
                                   "init.scope",
                                   "user@1000.service",
                                   "app-",
                                   "app",
                                   "-",
                                   ".",
                                   ".."}) {
        EXPECT_EQ(appIdOfPath("/"s + unit), kNothing) << unit;
    }
}

TEST(AppUnitTest, OtherDotsBelongToTheId) {
    EXPECT_EQ(appIdOfPath("/app-a.scope.scope"), "a.scope");
    EXPECT_EQ(appIdOfPath("/app-a.scope.service"), "a.scope");
    EXPECT_EQ(appIdOfPath("/app-..service"), ".");
}

TEST(AppUnitTest, BytesThatNeedNoEscapeStandForThemselves) {
    EXPECT_EQ(appIdOfPath("/app-a b:c_d\t\xc3\xa9\xff-1.scope"), "a b:c_d\t\xc3\xa9\xff");
}

TEST(AppUnitTest, TheInnermostApplicationUnitDecides) {
    EXPECT_EQ(appIdOfPath("/user.slice/user-1000.slice/user@1000.service/app.slice/app-viewer-1.scope"),
              "viewer");
    EXPECT_EQ(appIdOfPath("/app-outer-1.scope/app-inner-2.scope"), "inner");
    EXPECT_EQ(appIdOfPath("/app-outer@1.service/app-inner.slice/app-inner.service"), "inner");
}

TEST(AppUnitTest, WhatIsInsideAnApplicationUnitBelongsToIt) {
    EXPECT_EQ(appIdOfPath("/app-viewer@1.service/worker"), "viewer");
    EXPECT_EQ(appIdOfPath("/app-viewer-1.scope/a/b/session-2.scope"), "viewer");
    EXPECT_EQ(appIdOfPath("/app-viewer-1.scope/app-\\q-1.scope"), "viewer");
    EXPECT_EQ(appIdOfPath("/app-viewer-1.scope/app--1.scope"), "viewer");
}

TEST(AppUnitTest, SlashesMayBeManyOrNone) {
    EXPECT_EQ(appIdOfPath("app-viewer-1.scope"), "viewer");
    EXPECT_EQ(appIdOfPath("app-viewer-1.scope/worker"), "viewer");
    EXPECT_EQ(appIdOfPath("//app-viewer-1.scope//"), "viewer");
    EXPECT_EQ(appIdOfPath("/../../app-viewer-1.scope"), "viewer");
}

TEST(AppUnitTest, APathWithoutUnitsNamesNothing) {
    EXPECT_EQ(appIdOfPath(""), kNothing);
    EXPECT_EQ(appIdOfPath("/"), kNothing);
    EXPECT_EQ(appIdOfPath("///"), kNothing);
    EXPECT_EQ(appIdOfPath("/a/b"), kNothing);
}

TEST(AppUnitTest, AnIdIsNeverCut) {
    const std::string id(100'000, 'a');

    EXPECT_EQ(appIdOfPath("/app-" + id + "-1.scope"), id);
    EXPECT_EQ(appIdOfPath("/app-x-" + id + "@1.service"), id);
}

TEST(AppUnitTest, APathOfAHundredThousandFoldersIsReadToItsBeginning) {
    std::string path = "/app-viewer-1.scope";
    for (int folder = 0; folder < 100'000; ++folder) {
        path += "/x";
    }

    EXPECT_EQ(appIdOfPath(path), "viewer");
}

TEST(CgroupsTest, TheUnifiedHierarchyIsRead) {
    EXPECT_EQ(appIdOfCgroups("0::/app.slice/app-viewer-1.scope\n"), "viewer");
    EXPECT_EQ(appIdOfCgroups("0::/app.slice/app-viewer-1.scope"), "viewer");
    EXPECT_EQ(appIdOfCgroups("4:memory:/x\n0::/app-viewer-1.scope\n"), "viewer");
}

TEST(CgroupsTest, TheNamedHierarchyIsReadWhereTheUnifiedOneNamesNothing) {
    EXPECT_EQ(appIdOfCgroups("4:memory:/x\n1:name=systemd:/app-viewer-1.scope\n0::/\n"), "viewer");
    EXPECT_EQ(appIdOfCgroups("1:name=systemd:/app-viewer-1.scope\n0::/app.slice\n"), "viewer");
    EXPECT_EQ(appIdOfCgroups("1:name=systemd:/app-viewer-1.scope\n"), "viewer");
}

TEST(CgroupsTest, TheUnifiedHierarchyCountsMoreThanTheNamedOne) {
    EXPECT_EQ(appIdOfCgroups("1:name=systemd:/app-named-1.scope\n0::/app-unified-1.scope\n"), "unified");
    EXPECT_EQ(appIdOfCgroups("0::/app-unified-1.scope\n1:name=systemd:/app-named-1.scope\n"), "unified");
}

TEST(CgroupsTest, NoOtherHierarchyCounts) {
    EXPECT_EQ(appIdOfCgroups("4:memory:/app-viewer-1.scope\n3:cpu,cpuacct:/app-viewer-1.scope\n"), kNothing);
    EXPECT_EQ(appIdOfCgroups("2:name=elogind:/app-viewer-1.scope\n0::/\n"), kNothing);
    EXPECT_EQ(appIdOfCgroups("2:cpu,name=systemd:/app-viewer-1.scope\n"), kNothing);
    EXPECT_EQ(appIdOfCgroups("2:memory:/name=systemd:/app-viewer-1.scope\n0::/\n"), kNothing);
}

TEST(CgroupsTest, AColonMayBeInAPath) {
    EXPECT_EQ(appIdOfCgroups("0::/app-a:b::c-1.scope\n"), "a:b::c");
}

TEST(CgroupsTest, ARemovedCgroupNamesNothing) {
    EXPECT_EQ(appIdOfCgroups("0::/app-viewer-1.scope (deleted)\n"), kNothing);
    EXPECT_EQ(appIdOfCgroups("0::/app-viewer-1.scope/worker (deleted)\n"), kNothing);
    EXPECT_EQ(appIdOfCgroups("1:name=systemd:/app-viewer-1.scope\n0::/x (deleted)\n"), kNothing);
}

TEST(CgroupsTest, APathThatMayHaveBeenCutNamesNothing) {
    const std::string uncut = "0::/app-viewer-1.scope/" + std::string(4074, 'a');
    const std::string named = "1:name=systemd:/app-viewer-1.scope/" + std::string(4074, 'a');

    EXPECT_EQ(appIdOfCgroups(uncut), "viewer");
    EXPECT_EQ(appIdOfCgroups(uncut + "a"), kNothing);
    EXPECT_EQ(appIdOfCgroups(uncut + "a (deleted)"), kNothing);
    EXPECT_EQ(appIdOfCgroups(named), "viewer");
    EXPECT_EQ(appIdOfCgroups(named + "a"), kNothing);
}

TEST(CgroupsTest, WhatIsNoListOfCgroupsNamesNothing) {
    for (const char* const cgroups :
         {"", "\n", "\n\n", ":", "::", "0", "0:", "0::", "0::\n", "app-viewer-1.scope",
          "0:/app-viewer-1.scope", "name=systemd:/app-viewer-1.scope"}) {
        EXPECT_EQ(appIdOfCgroups(cgroups), kNothing) << cgroups;
    }
}

// As a fuzzer would, without its luck: every sequence of up to five pieces that mean something here.
TEST(CgroupsTest, WhateverIsBetweenPrefixAndSuffixNoIdIsEmptyOrHasAZero) {
    constexpr std::array<std::string_view, 8> kPieces{"", "a", "-", "@", "\\", "\\x2d", "\\x00", "/app-"};
    constexpr std::size_t kCombinations = 1 << 15;
    std::size_t named = 0;

    for (std::size_t combination = 0; combination < kCombinations; ++combination) {
        std::string path = "/app-";
        for (std::size_t rest = combination; rest > 0; rest /= kPieces.size()) {
            path += kPieces[rest % kPieces.size()];
        }
        for (const char* const suffix : {".scope", ".service"}) {
            if (const std::optional<std::string> id = appIdOfPath(path + suffix)) {
                ++named;
                EXPECT_FALSE(id->empty()) << path;
                EXPECT_EQ(id->find('\0'), std::string::npos) << path;
            }
        }
    }

    EXPECT_GT(named, 1000U);
}

}  // namespace
