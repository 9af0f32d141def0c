// SPDX-License-Identifier: Apache-2.0

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "captures/Snapshot.h"
#include "testing/Interfaces.h"
#include "testing/TemporaryRoot.h"

namespace Captures {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using ::testing::StartsWith;
using testing_support::intf;

constexpr std::string_view kLinksAdvice = "; give the output of `ip -j link`, whole and unchanged";
constexpr std::string_view kNextHopsAdvice =
    "; give the output of `ip -j nexthop`, whole and unchanged";

std::uint32_t ipv4(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  return a << 24 | b << 16 | c << 8 | d;
}

// Two files in a folder of the test's own.
class SnapshotTest : public ::testing::Test {
 protected:
  SnapshotTest() {
    write(linksFile_, "[]");
    write(nextHopsFile_, "[]");
  }

  static void write(const std::string& file, std::string_view text) {
    std::ofstream(file, std::ios::binary) << text;
  }

  Snapshot read(const InputLimits& limits = {}) const {
    return readSnapshot(linksFile_, nextHopsFile_, limits);
  }
  Snapshot readLinks(std::string_view text) const {
    write(linksFile_, text);
    return read();
  }
  Snapshot readNextHops(std::string_view text) const {
    write(nextHopsFile_, text);
    return read();
  }

  // The error without the folder, "" if there is none.
  std::string error(const InputLimits& limits = {}) const {
    try {
      read(limits);
      return "";
    } catch (const InputError& error) {
      const std::string message = error.what();
      const std::string folder = folder_.path() + "/";
      EXPECT_THAT(message, StartsWith(folder));
      return message.substr(folder.size());
    }
  }
  std::string linksError(std::string_view text, const InputLimits& limits = {}) const {
    write(linksFile_, text);
    return error(limits);
  }
  std::string nextHopsError(std::string_view text, const InputLimits& limits = {}) const {
    write(linksFile_, "[]");
    write(nextHopsFile_, text);
    return error(limits);
  }

  testing_support::TemporaryRoot folder_;
  std::string linksFile_ = folder_.path() + "/links.json";
  std::string nextHopsFile_ = folder_.path() + "/nexthops.json";
};

std::string links(std::string_view wrong) {
  return std::string("links.json:").append(wrong).append(kLinksAdvice);
}

std::string nextHops(std::string_view wrong) {
  return std::string("nexthops.json:").append(wrong).append(kNextHopsAdvice);
}

// ---- What is read ----

TEST_F(SnapshotTest, EmptyArraysGiveAnEmptySnapshot) {
  const Snapshot snapshot = read();
  EXPECT_THAT(snapshot.links, IsEmpty());
  EXPECT_THAT(snapshot.nextHops, IsEmpty());
  EXPECT_THAT(snapshot.skippedByKind, IsEmpty());
  EXPECT_EQ(snapshot.skippedLinks, 0U);
}

TEST_F(SnapshotTest, AnOperationalStateOfUpIsUpAndAnyOtherThanUnknownIsDown) {
  const Snapshot snapshot = readLinks(
      R"([{"ifname":"eth1","operstate":"UP","flags":[]},
          {"ifname":"eth2","operstate":"DOWN","flags":["UP","LOWER_UP"]},
          {"ifname":"eth3","operstate":"LOWERLAYERDOWN","flags":["UP","LOWER_UP"]},
          {"ifname":"eth4","operstate":"DORMANT","flags":["UP","LOWER_UP"]}])");
  EXPECT_THAT(snapshot.links,
              ElementsAre(Link{"eth1", intf("eth1"), true}, Link{"eth2", intf("eth2"), false},
                          Link{"eth3", intf("eth3"), false}, Link{"eth4", intf("eth4"), false}));
}

TEST_F(SnapshotTest, AnUnknownOperationalStateIsUpOnlyWithBothFlags) {
  const Snapshot snapshot = readLinks(
      R"([{"ifname":"lo","flags":["LOOPBACK","UP","LOWER_UP"],"operstate":"UNKNOWN"},
          {"ifname":"dummy0","flags":["UP"],"operstate":"UNKNOWN"},
          {"ifname":"tun0","flags":["LOWER_UP"],"operstate":"UNKNOWN"},
          {"ifname":"tap0","operstate":"UNKNOWN"},
          {"ifname":"dummy1","flags":["UP","LOWER_UP"]}])");
  EXPECT_THAT(snapshot.links,
              ElementsAre(Link{"lo", intf("lo"), true}, Link{"dummy0", intf("dummy0"), false},
                          Link{"tun0", intf("tun0"), false}, Link{"tap0", intf("tap0"), false},
                          Link{"dummy1", intf("dummy1"), true}));
}

TEST_F(SnapshotTest, ALinkWhoseNameDoesNotFitIsSkippedAndCounted) {
  const Snapshot snapshot = readLinks(
      R"([{"ifname":"enx001122334455","operstate":"UP"},{"ifname":"eth1","operstate":"UP"}])");
  EXPECT_THAT(snapshot.links, ElementsAre(Link{"eth1", intf("eth1"), true}));
  EXPECT_EQ(snapshot.skippedLinks, 1U);
}

TEST_F(SnapshotTest, ANextHopCarriesInterfaceGatewayProtocolScopeAndFlags) {
  const Snapshot snapshot = readNextHops(
      R"([{"id":4294967295,"gateway":"192.0.2.254","dev":"swp1s0.100","scope":"link",
           "protocol":"zebra","flags":["onlink","linkdown"]},
          {"id":1,"dev":"eth1","scope":"host","protocol":"bgp","flags":[]},
          {"id":7,"dev":"eth2"}])");
  EXPECT_THAT(snapshot.nextHops,
              ElementsAre(NextHop{.id = 4294967295,
                                  .intf = intf("swp1s0.100"),
                                  .hasGateway = true,
                                  .gateway = ipv4(192, 0, 2, 254),
                                  .protocol = 11,
                                  .scope = 253,
                                  .flags = NextHop::kFlagOnlink | NextHop::kFlagLinkdown},
                          NextHop{.id = 1,
                                  .intf = intf("eth1"),
                                  .hasGateway = false,
                                  .gateway = 0,
                                  .protocol = 186,
                                  .scope = 254,
                                  .flags = 0},
                          NextHop{.id = 7,
                                  .intf = intf("eth2"),
                                  .hasGateway = false,
                                  .gateway = 0,
                                  .protocol = 0,
                                  .scope = 0,
                                  .flags = 0}));
}

TEST_F(SnapshotTest, NumbersInPlaceOfNamesAreTakenAndUnknownNamesBecomeTheDefault) {
  const Snapshot snapshot = readNextHops(
      R"([{"id":1,"dev":"eth1","protocol":"255","scope":"17","flags":["brand-new","trap"]},
          {"id":2,"dev":"eth1","protocol":"256","scope":"nowhere"},
          {"id":3,"dev":"eth1","protocol":"in-house","scope":"17x"}])");
  ASSERT_EQ(snapshot.nextHops.size(), 3U);
  EXPECT_EQ(snapshot.nextHops[0].protocol, 255);
  EXPECT_EQ(snapshot.nextHops[0].scope, 17);
  EXPECT_EQ(snapshot.nextHops[0].flags, NextHop::kFlagOther | NextHop::kFlagTrap);
  EXPECT_EQ(snapshot.nextHops[1].protocol, 0);
  EXPECT_EQ(snapshot.nextHops[1].scope, 255);
  EXPECT_EQ(snapshot.nextHops[2].protocol, 0);
  EXPECT_EQ(snapshot.nextHops[2].scope, 0);
}

TEST_F(SnapshotTest, AGatewayOfZerosIsAGateway) {
  const Snapshot snapshot = readNextHops(R"([{"id":1,"dev":"eth1","gateway":"0.0.0.0"}])");
  ASSERT_EQ(snapshot.nextHops.size(), 1U);
  EXPECT_TRUE(snapshot.nextHops[0].hasGateway);
  EXPECT_EQ(snapshot.nextHops[0].gateway, 0U);
}

TEST_F(SnapshotTest, WhatIsNoEntryOrDoesNotFitOneIsSkippedAndCountedByKind) {
  const Snapshot snapshot = readNextHops(
      R"([{"id":1,"group":[{"id":10},{"id":11,"weight":2}],"protocol":"zebra","flags":[]},
          {"id":2,"group":[{"id":10}],"type":"resilient","resilient_args":{"buckets":8}},
          {"id":3,"blackhole":null,"protocol":"static","flags":[]},
          {"id":4,"blackhole":true},
          {"id":5,"gateway":"192.0.2.1","fdb":null},
          {"id":6,"encap":"mpls","dst":"100","dev":"eth1"},
          {"id":7,"encap":{"type":"seg6"},"gateway":"2001:db8::1","dev":"eth1"},
          {"id":8,"via":{"family":"inet6","host":"2001:db8::1"},"dev":"eth1"},
          {"id":9,"gateway":"2001:db8::1","dev":"eth1"},
          {"id":10,"gateway":"fe80::1","dev":"eth1"},
          {"id":11,"gateway":"::ffff:192.0.2.1","dev":"eth1"},
          {"id":12,"dev":"enx001122334455"},
          {"id":13,"dev":"eth1","blackhole":false}])");
  EXPECT_THAT(snapshot.skippedByKind,
              ElementsAre(Pair(kSkippedBlackhole, 2), Pair(kSkippedEncap, 2), Pair(kSkippedFdb, 1),
                          Pair(kSkippedGroup, 2), Pair(kSkippedInterfaceName, 1),
                          Pair(kSkippedIpv6Gateway, 3), Pair(kSkippedVia, 1)));
  ASSERT_EQ(snapshot.nextHops.size(), 1U);
  EXPECT_EQ(snapshot.nextHops[0].id, 13U);
}

TEST_F(SnapshotTest, FieldsThatAreNotUsedMayBeOfAnyType) {
  const Snapshot snapshot = readNextHops(
      R"([{"x":null,"y":[[{"id":5}],-1,1.5],"z":{"id":0,"dev":7,"a":{"flags":3}},"id":1,"dev":"eth1"}])");
  ASSERT_EQ(snapshot.nextHops.size(), 1U);
  EXPECT_EQ(snapshot.nextHops[0].id, 1U);
}

TEST_F(SnapshotTest, TheOrderOfTheFileIsKept) {
  const Snapshot snapshot =
      readNextHops(R"([{"id":9,"dev":"a"},{"id":2,"dev":"b"},{"id":5,"dev":"c"}])");
  std::vector<std::uint32_t> ids;
  for (const NextHop& nextHop : snapshot.nextHops) {
    ids.push_back(nextHop.id);
  }
  EXPECT_THAT(ids, ElementsAre(9, 2, 5));
}

// ---- The captures ----

struct Capture {
  const char* name;
  std::size_t nextHops;
  std::uint64_t groups;
  std::size_t linksUp;
};

class ReplayCaptureTest : public ::testing::TestWithParam<Capture> {};

TEST_P(ReplayCaptureTest, IsReadWhole) {
  const std::string folder = EXAMPLES_DIR "/frr-nexthops/";
  const Snapshot snapshot = readSnapshot(folder + "links-" + GetParam().name + ".json",
                                         folder + "nexthops-" + GetParam().name + ".json");
  EXPECT_EQ(snapshot.links.size(), 129U);
  EXPECT_EQ(snapshot.skippedLinks, 0U);
  EXPECT_EQ(snapshot.nextHops.size(), GetParam().nextHops);
  EXPECT_THAT(snapshot.skippedByKind, ElementsAre(Pair(kSkippedGroup, GetParam().groups)));
  std::size_t linksUp = 0;
  for (const Link& link : snapshot.links) {
    linksUp += link.isUp ? 1 : 0;
  }
  EXPECT_EQ(linksUp, GetParam().linksUp);
  const NextHop first{.id = 129,
                      .intf = intf("eth1"),
                      .hasGateway = false,
                      .gateway = 0,
                      .protocol = 11,
                      .scope = 254,
                      .flags = 0};
  EXPECT_EQ(snapshot.nextHops.front(), first);
}

INSTANTIATE_TEST_SUITE_P(Captures, ReplayCaptureTest,
                         ::testing::Values(Capture{"a-before", 4225, 194, 129},
                                           Capture{"b-four-links-down", 4093, 194, 125},
                                           Capture{"c-links-back", 4225, 200, 129}),
                         [](const auto& capture) {
                           std::string name = capture.param.name;
                           std::erase(name, '-');
                           return name;
                         });

// ---- Malformed files ----

TEST_F(SnapshotTest, AMissingFileIsAnError) {
  std::filesystem::remove(linksFile_);
  EXPECT_EQ(error(),
            "links.json: cannot be read: No such file or directory; give a file that holds the "
            "output of `ip -j link`");
}

TEST_F(SnapshotTest, AFolderIsAnError) {
  std::filesystem::remove(nextHopsFile_);
  std::filesystem::create_directory(nextHopsFile_);
  EXPECT_EQ(error(),
            "nexthops.json: cannot be read: Is a directory; give a file that holds the "
            "output of `ip -j nexthop`");
}

TEST_F(SnapshotTest, AnEmptyFileIsAnError) {
  EXPECT_EQ(linksError(""), links("1:1: the file is empty"));
}

TEST_F(SnapshotTest, AFileOfWhiteSpaceIsAnError) {
  EXPECT_EQ(nextHopsError(" \n \n"), nextHops("3:1: the file ends before its JSON does"));
}

TEST_F(SnapshotTest, TextThatIsNotJsonIsAnErrorAtItsFirstWrongByte) {
  EXPECT_EQ(linksError("1: lo: <LOOPBACK,UP,LOWER_UP> mtu 65536"),
            links("1:1: this must be an array, not 1"));
  EXPECT_EQ(linksError("Device \"x\" does not exist."),
            links("1:1: this is not JSON: invalid literal"));
  EXPECT_EQ(linksError("[\n  {\"ifname\": eth0}]"),
            links("2:14: this is not JSON: invalid literal"));
}

TEST_F(SnapshotTest, WrongPunctuationIsAnErrorAtItsPlace) {
  EXPECT_EQ(nextHopsError("[{\"id\":1,}]"),
            nextHops("1:10: this is not JSON: unexpected '}', expected string literal"));
  EXPECT_EQ(nextHopsError("[\n{\"id\":1 \"dev\":\"eth0\"}]"),
            nextHops("2:9: this is not JSON: unexpected string literal, expected '}'"));
}

TEST_F(SnapshotTest, TextAfterTheArrayIsAnError) {
  EXPECT_EQ(linksError("[]\n[]"),
            links("2:1: this is not JSON: unexpected '[', expected end of input"));
}

TEST_F(SnapshotTest, TruncatedFilesAreAnErrorAtTheirEndWhereverTheyAreCut) {
  const std::string whole =
      "[{\"id\":1,\"dev\":\"eth1\",\"blackhole\":null},\n{\"id\":2,\"group\":[{\"id\":1}]}]";
  for (std::size_t length = 1; length < whole.size(); ++length) {
    const std::string message = nextHopsError(whole.substr(0, length));
    EXPECT_THAT(message, HasSubstr("the file ends before its JSON does")) << length;
  }
  EXPECT_EQ(nextHopsError(whole), "");
  EXPECT_EQ(nextHopsError(whole.substr(0, 60)),
            nextHops("2:20: the file ends before its JSON does"));
}

TEST_F(SnapshotTest, TextThatIsNotUtf8IsAnError) {
  EXPECT_EQ(linksError("[{\"ifname\":\"\xff\"}]"),
            links("1:13: this is not JSON: invalid string: ill-formed UTF-8 byte"));
}

TEST_F(SnapshotTest, ANumberThatIsTooLargeForAnyTypeIsAnError) {
  EXPECT_EQ(nextHopsError("[{\"id\":1e999}]"),
            nextHops("1:13: this is not JSON: number overflow parsing '1e999'"));
}

TEST_F(SnapshotTest, AnythingButAnArrayOfObjectsIsAnError) {
  EXPECT_EQ(linksError("{}"), links("1:1: this must be an array, not an object"));
  EXPECT_EQ(linksError("\n null"), links("2:2: this must be an array, not null"));
  EXPECT_EQ(linksError("[{\"ifname\":\"a\"},\n true]"),
            links("2:2: this must be an object, not true"));
  EXPECT_EQ(linksError("[-5]"), links("1:2: this must be an object, not -5"));
  EXPECT_EQ(linksError("[[]]"), links("1:2: this must be an object, not an array"));
}

TEST_F(SnapshotTest, AWrongTypeIsAnErrorAtTheValue) {
  EXPECT_EQ(linksError("[{\"ifname\": 5}]"), links("1:13: \"ifname\" is 5, not a text"));
  EXPECT_EQ(linksError("[{\"ifname\":\"a\",\"flags\":\"UP\"}]"),
            links("1:24: \"flags\" is the text \"UP\", not an array"));
  EXPECT_EQ(linksError("[{\"ifname\":\"a\",\"flags\":[\"UP\", false]}]"),
            links("1:31: an item of \"flags\" is false, not a text"));
  EXPECT_EQ(linksError("[{\"ifname\":\"a\",\"operstate\":null}]"),
            links("1:28: \"operstate\" is null, not a text"));
  EXPECT_EQ(nextHopsError("[{\"id\":1,\"dev\":{}}]"),
            nextHops("1:16: \"dev\" is an object, not a text"));
  EXPECT_EQ(nextHopsError("[{\"id\":1,\"dev\":\"a\",\"gateway\":[]}]"),
            nextHops("1:30: \"gateway\" is an array, not a text"));
  EXPECT_EQ(nextHopsError("[{\"id\":1,\"group\":7}]"),
            nextHops("1:18: \"group\" is 7, not an array"));
  EXPECT_EQ(nextHopsError("[{\"id\":1,\"blackhole\":\"yes\"}]"),
            nextHops("1:22: \"blackhole\" is the text \"yes\", not null or true"));
  EXPECT_EQ(nextHopsError("[{\"id\":1,\"fdb\":1.5}]"),
            nextHops("1:16: \"fdb\" is 1.5, not null or true"));
}

TEST_F(SnapshotTest, AnIdThatIsNotAWholeNumberOf32BitsAboveZeroIsAnError) {
  const std::map<std::string, std::string> isByText = {
      {"4294967296", "4294967296"},
      {"18446744073709551616", "18446744073709551616"},
      {"-1", "-1"},
      {"0", "0"},
      {"1.0", "1.0"},
      {"\"1\"", "the text \"1\""},
      {"null", "null"},
  };
  for (const auto& [text, is] : isByText) {
    EXPECT_EQ(
        nextHopsError(fmt::format("[\n {{\"id\": {},\"dev\":\"eth1\"}}]", text)),
        nextHops(fmt::format("2:9: \"id\" is {}, not a whole number from 1 to 4294967295", is)));
  }
  EXPECT_EQ(nextHopsError("[{\"id\":4294967295,\"dev\":\"eth1\"}]"), "");
  EXPECT_EQ(nextHopsError("[{\"id\":1,\"dev\":\"eth1\"}]"), "");
}

TEST_F(SnapshotTest, ADuplicateIdIsAnErrorAtTheSecondWhateverItsKind) {
  EXPECT_EQ(nextHopsError("[{\"id\":7,\"dev\":\"eth1\"},\n {\"id\":7,\"group\":[]}]"),
            nextHops("2:8: next hop 7 is given twice"));
}

TEST_F(SnapshotTest, ADuplicateLinkIsAnErrorAtTheSecond) {
  EXPECT_EQ(linksError("[{\"ifname\":\"eth1\"},\n {\"ifname\":\"eth1\"}]"),
            links("2:12: link \"eth1\" is given twice"));
  EXPECT_EQ(linksError("[{\"ifname\":\"enx001122334455\"},\n {\"ifname\":\"enx001122334455\"}]"),
            links("2:12: link \"enx001122334455\" is given twice"));
}

TEST_F(SnapshotTest, AFieldGivenTwiceIsAnErrorAtTheSecond) {
  EXPECT_EQ(nextHopsError("[{\"id\":1,\"id\":2}]"), nextHops("1:15: \"id\" is given twice"));
  EXPECT_EQ(nextHopsError("[{\"id\":1,\"dev\":\"a\",\"dev\":\"a\"}]"),
            nextHops("1:26: \"dev\" is given twice"));
  EXPECT_EQ(nextHopsError("[{\"id\":1,\"flags\":[],\"flags\":[]}]"),
            nextHops("1:29: \"flags\" is given twice"));
  EXPECT_EQ(nextHopsError("[{\"id\":1,\"fdb\":null,\"fdb\":null}]"),
            nextHops("1:27: \"fdb\" is given twice"));
}

TEST_F(SnapshotTest, AMissingFieldIsAnErrorWhereTheElementBegins) {
  EXPECT_EQ(linksError("[{\"ifname\":\"a\"},\n  {\"ifindex\":2,\n\"mtu\":1500}]"),
            links("2:3: this link has no \"ifname\""));
  EXPECT_EQ(linksError("[{}]"), links("1:2: this link has no \"ifname\""));
  EXPECT_EQ(nextHopsError("[{\"group\":[{\"id\":1}]}]"),
            nextHops("1:2: this next hop has no \"id\""));
  EXPECT_EQ(nextHopsError("[\n{\"id\":5,\"gateway\":\"192.0.2.1\"}]"),
            nextHops("2:1: next hop 5 has no \"dev\", and is not a group, blackhole or fdb"));
  EXPECT_EQ(nextHopsError("[{\"id\":5,\"blackhole\":false}]"),
            nextHops("1:2: next hop 5 has no \"dev\", and is not a group, blackhole or fdb"));
}

TEST_F(SnapshotTest, AnEmptyNameIsAnError) {
  EXPECT_EQ(linksError("[{\"ifname\":\"\"}]"), links("1:12: \"ifname\" is empty"));
  EXPECT_EQ(nextHopsError("[{\"id\":5,\"dev\":\"\"}]"), nextHops("1:16: \"dev\" is empty"));
}

TEST_F(SnapshotTest, AGatewayThatIsNoAddressIsAnError) {
  EXPECT_EQ(nextHopsError("[{\"id\":5,\"dev\":\"a\",\"gateway\":\"10.0.0.256\"}]"),
            nextHops("1:30: \"gateway\" is \"10.0.0.256\", which is not an address"));
}

TEST_F(SnapshotTest, ErrorsShowTextFromTheFileEscapedAndShortened) {
  EXPECT_EQ(
      nextHopsError(fmt::format(R"([{{"id":5,"dev":"a","gateway":"{:x>1000}"}}])", "")),
      nextHops(fmt::format("1:30: \"gateway\" is \"{:x>40}\"..., which is not an address", "")));
  EXPECT_THAT(nextHopsError("[{\"id\":\"\\u001b[2J\"}]"),
              HasSubstr("\"id\" is the text \"\\x1b[2J\", not"));
}

// ---- Bounds ----

TEST_F(SnapshotTest, NestingIsReadUpToItsLimitAndNoFurther) {
  const auto nested = [](std::size_t depth) {
    const std::size_t arrays = depth - 2;
    return fmt::format(R"([{{"id":1,"dev":"a","x":{:[>{}}{:]>{}}}}])", "", arrays, "", arrays);
  };
  const InputLimits limits;
  EXPECT_EQ(nextHopsError(nested(limits.maxDepth - 1)), "");
  EXPECT_EQ(nextHopsError(nested(limits.maxDepth)), "");
  EXPECT_EQ(nextHopsError(nested(limits.maxDepth + 1)),
            nextHops("1:54: more than 32 nested arrays and objects"));
}

TEST_F(SnapshotTest, AFileOfNothingButOpeningBracketsIsAnError) {
  EXPECT_EQ(nextHopsError(std::string(1'000'000, '[')),
            nextHops("1:2: this must be an object, not an array"));
  EXPECT_EQ(nextHopsError(fmt::format("[{{\"x\":{:[>1000000}", "")),
            nextHops("1:37: more than 32 nested arrays and objects"));
}

TEST_F(SnapshotTest, ElementsAreReadUpToTheirLimitAndNoFurther) {
  const InputLimits limits{.maxElements = 2};
  EXPECT_EQ(linksError(R"([{"ifname":"a"}])", limits), "");
  EXPECT_EQ(linksError(R"([{"ifname":"a"},{"ifname":"b"}])", limits), "");
  EXPECT_EQ(linksError(R"([{"ifname":"a"},{"ifname":"b"},{"ifname":"c"}])", limits),
            links("1:32: more than 2 elements"));
}

TEST_F(SnapshotTest, AnElementIsReadUpToItsSizeAndNoFurther) {
  const InputLimits limits{.maxElementBytes = 16};
  const auto file = [](std::string_view first, std::string_view second) {
    return std::string("[").append(first).append(",").append(second).append("]");
  };
  // The opening bracket or the comma belongs to the element that follows.
  EXPECT_EQ(linksError(file(R"({"ifname":"a"})", R"({"ifname":"b"})"), limits), "");
  EXPECT_EQ(linksError(file(R"({"ifname":"aa"})", R"({"ifname":"bb"})"), limits), "");
  EXPECT_EQ(linksError(file(R"({"ifname":"aa"})", R"({"ifname":"bbb"})"), limits),
            links("1:33: more than 16 bytes without the end of an element"));
}

TEST_F(SnapshotTest, ATextWithoutEndIsAnErrorAtTheSizeOfAnElement) {
  const InputLimits limits;
  EXPECT_EQ(linksError(fmt::format("\"{:x>{}}", "", limits.maxElementBytes + 10)),
            links("1:4194305: more than 4194304 bytes without the end of an element"));
  EXPECT_EQ(linksError(fmt::format("[{:\n>{}}", "", limits.maxElementBytes + 10)),
            links("4194304:1: more than 4194304 bytes without the end of an element"));
}

TEST_F(SnapshotTest, AHundredMegabytesOfGarbageAreAnErrorAtTheFirstByte) {
  std::filesystem::resize_file(linksFile_, 0);
  std::filesystem::resize_file(linksFile_, 100'000'000);
  EXPECT_EQ(error(), links("1:1: this is not JSON: a zero byte"));
}

TEST_F(SnapshotTest, AZeroByteAfterTheArrayIsAnErrorAndNotTheEnd) {
  EXPECT_EQ(linksError(std::string_view("[]\0[", 4)), links("1:3: this is not JSON: a zero byte"));
}

TEST_F(SnapshotTest, AnErrorIsOneLine) {
  EXPECT_THAT(linksError("[{\"ifname\":\"a\nb\"}]"), Not(HasSubstr("\n")));
  EXPECT_THAT(linksError("[\n\n{\"ifname\":{\"\":\n1}}]"), Not(HasSubstr("\n")));
  EXPECT_THAT(linksError("\n\x01\n"), Not(HasSubstr("\n")));
}

}  // namespace
}  // namespace Captures
