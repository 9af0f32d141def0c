// SPDX-License-Identifier: Apache-2.0

#include "captures/Snapshot.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <unordered_set>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

// Three layers: InputFile gives the JSON parser the file's bytes one by one and so knows where it
// is; ElementHandler takes the parser's events and cuts them into the elements of the file's outer
// array, their fields and the items of fields; a sink a file (LinkSink, NextHopSink) makes a record
// of each element. No document is built: memory is that of the records and of one element.
//
// Any layer throws InputError, through the parser, which then is not used any more.

namespace Captures {
namespace {

constexpr std::size_t kReadBytes = 65536;
constexpr std::size_t kMaxQuoted = 40;

std::string quote(std::string_view text) {
  return fmt::format("{:?}{}", text.substr(0, kMaxQuoted), text.size() > kMaxQuoted ? "..." : "");
}

struct Position {
  std::uint64_t line = 1;
  std::uint64_t column = 1;
};

// ---- The file ----

// The bytes of one file, and the positions of what is read from it.
//
// A token begins at the first byte that is not white space, comma or colon after the last event,
// so its position is exact although the parser reads one byte past a number.
class InputFile {
 public:
  // `printedBy` is the command that prints such files, for the errors.
  InputFile(std::string name, std::string_view printedBy, const InputLimits& inputLimits)
      : limits(inputLimits),
        name_(std::move(name)),
        printedBy_(printedBy),
        file_(std::fopen(name_.c_str(), "re"), &std::fclose) {
    if (!file_) {
      failToRead();
    }
  }

  bool atEnd() {
    if (next_ == size_) {
      size_ = std::fread(buffer_.data(), 1, buffer_.size(), file_.get());
      next_ = 0;
      if (std::ferror(file_.get()) != 0) {
        failToRead();
      }
    }
    sawEnd_ = next_ == size_;
    return sawEnd_;
  }

  char current() const { return buffer_[next_]; }

  void advance() {
    const char byte = current();
    ++next_;
    last_ = here_;
    isEmpty_ = false;
    if (byte == '\0') {
      // The parser would take it for the end of the file.
      fail(last_, "this is not JSON: a zero byte");
    }
    if (!token_ && !std::strchr(" \t\r\n,:", byte)) {
      token_ = here_;
    }
    if (byte == '\n') {
      ++here_.line;
      here_.column = 1;
    } else {
      ++here_.column;
    }
    if (++elementBytes_ > limits.maxElementBytes) {
      fail(last_,
           fmt::format("more than {} bytes without the end of an element", limits.maxElementBytes));
    }
  }

  Position tokenStart() const { return token_.value_or(last_); }
  void tokenTaken() { token_.reset(); }
  void elementTaken() { elementBytes_ = 0; }

  [[noreturn]] void fail(Position position, std::string_view what) const {
    throw InputError(fmt::format("{}:{}:{}: {}; give the output of `{}`, whole and unchanged",
                                 name_, position.line, position.column, what, printedBy_));
  }

  // Fails at what the parser has just read. `complaint` is the parser's.
  [[noreturn]] void failToParse(std::string_view complaint) const {
    if (isEmpty_) {
      fail(here_, "the file is empty");
    }
    if (sawEnd_) {
      fail(here_, "the file ends before its JSON does");
    }
    // A token that is right in itself is wrong from its start, any other at the byte just read.
    fail(complaint.starts_with("unexpected") ? tokenStart() : last_,
         fmt::format("this is not JSON: {}", complaint));
  }

  const InputLimits limits;

 private:
  [[noreturn]] void failToRead() const {
    throw InputError(
        fmt::format("{}: cannot be read: {}; give a file that holds the output of `{}`", name_,
                    std::generic_category().message(errno), printedBy_));
  }

  std::string name_;
  std::string_view printedBy_;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
  std::array<char, kReadBytes> buffer_{};
  std::size_t next_ = 0;
  std::size_t size_ = 0;
  std::size_t elementBytes_ = 0;
  Position here_;  // of the next byte
  Position last_;  // of the last byte read
  std::optional<Position> token_;
  bool isEmpty_ = true;
  bool sawEnd_ = false;
};

// How the parser reads an InputFile; without a file, the end.
class InputIterator {
 public:
  // The names are the standard library's.
  // NOLINTBEGIN(readability-identifier-naming)
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = char;
  // NOLINTEND(readability-identifier-naming)

  explicit InputIterator(InputFile* file) : file_(file) {}
  char operator*() const { return file_->current(); }
  InputIterator& operator++() {
    file_->advance();
    return *this;
  }
  friend bool operator==(const InputIterator& iterator, const InputIterator& end) {
    return end.file_ == nullptr && iterator.file_->atEnd();
  }

 private:
  InputFile* file_;
};

// ---- Elements, fields, items ----

constexpr std::string_view kTrue = "true";
constexpr std::string_view kFalse = "false";

struct Value {
  enum class Kind { kNull, kBoolean, kWholeNumber, kOtherNumber, kText, kArray, kObject };

  Kind kind;
  Position position;
  std::string_view text;  // of a text; of a boolean or another number, as JSON writes it
  std::uint64_t number;   // of a whole number

  std::string describe() const {
    switch (kind) {
      case Kind::kNull:
        return "null";
      case Kind::kBoolean:
      case Kind::kOtherNumber:
        return std::string(text.substr(0, kMaxQuoted));
      case Kind::kWholeNumber:
        return std::to_string(number);
      case Kind::kText:
        return fmt::format("the text {}", quote(text));
      case Kind::kArray:
        return "an array";
      case Kind::kObject:
        return "an object";
    }
    return {};
  }
};

// What makes records of the elements of one file.
class Sink {
 public:
  virtual ~Sink() = default;
  virtual void elementBegin() = 0;
  virtual void field(const std::string& key, const Value& value) = 0;
  // An item of the array that was the value of the last field.
  virtual void item(const std::string& key, const Value& value) = 0;
  // `position` is where the element begins.
  virtual void elementEnd(Position position) = 0;
};

class ElementHandler : public nlohmann::json_sax<nlohmann::json> {
 public:
  ElementHandler(InputFile& file, Sink& sink) : file_(file), sink_(sink) {}

  bool null() override { return take(Value::Kind::kNull); }
  bool boolean(bool value) override { return take(Value::Kind::kBoolean, value ? kTrue : kFalse); }
  bool number_integer(number_integer_t value) override {
    return take(Value::Kind::kOtherNumber, std::to_string(value));
  }
  bool number_unsigned(number_unsigned_t value) override {
    return take(Value::Kind::kWholeNumber, {}, value);
  }
  bool number_float(number_float_t /*value*/, const string_t& text) override {
    return take(Value::Kind::kOtherNumber, text);
  }
  bool string(string_t& value) override { return take(Value::Kind::kText, value); }
  // JSON text has no binary values.
  bool binary(binary_t& /*value*/) override { return false; }

  bool start_array(std::size_t /*elements*/) override {
    take(Value::Kind::kArray);
    enter();
    if (depth_ == kFieldDepth) {
      fieldIsArray_ = true;
    }
    return true;
  }
  bool start_object(std::size_t /*elements*/) override {
    const Position position = file_.tokenStart();
    take(Value::Kind::kObject);
    enter();
    if (depth_ == kElementDepth) {
      elementPosition_ = position;
      sink_.elementBegin();
    } else if (depth_ == kFieldDepth) {
      fieldIsArray_ = false;
    }
    return true;
  }
  bool end_array() override { return leave(); }
  bool end_object() override {
    if (depth_ == kElementDepth) {
      sink_.elementEnd(elementPosition_);
      file_.elementTaken();
    }
    return leave();
  }
  bool key(string_t& value) override {
    if (depth_ == kElementDepth) {
      key_ = value;
    }
    file_.tokenTaken();
    return true;
  }

  bool parse_error(std::size_t /*position*/, const std::string& /*lastToken*/,
                   const nlohmann::json::exception& error) override {
    // The parser says "[id] parse error at line 1, column 2: syntax error while parsing value -
    // unexpected '}'; expected end of input", or "...; last read: 'xy'" with all of the token.
    std::string_view complaint = error.what();
    complaint = complaint.substr(0, complaint.find("; last read: "));
    for (const std::string_view lead : {"] ", " - "}) {
      const auto at = complaint.find(lead);
      complaint.remove_prefix(at == std::string_view::npos ? 0 : at + lead.size());
    }
    std::string text(complaint.substr(0, kMaxComplaint));
    std::ranges::replace(text, ';', ',');
    file_.failToParse(text);
  }

 private:
  // Open arrays and objects: inside the outer array, inside an element, inside a field's value.
  static constexpr std::size_t kOuterDepth = 1;
  static constexpr std::size_t kElementDepth = 2;
  static constexpr std::size_t kFieldDepth = 3;
  static constexpr std::size_t kMaxComplaint = 200;

  bool take(Value::Kind kind, std::string_view text = {}, std::uint64_t number = 0) {
    const Value value{kind, file_.tokenStart(), text, number};
    file_.tokenTaken();
    if (depth_ == 0 && value.kind != Value::Kind::kArray) {
      file_.fail(value.position, fmt::format("this must be an array, not {}", value.describe()));
    }
    if (depth_ == kOuterDepth) {
      if (value.kind != Value::Kind::kObject) {
        file_.fail(value.position, fmt::format("this must be an object, not {}", value.describe()));
      }
      if (++elements_ > file_.limits.maxElements) {
        file_.fail(value.position, fmt::format("more than {} elements", file_.limits.maxElements));
      }
    } else if (depth_ == kElementDepth) {
      sink_.field(key_, value);
    } else if (depth_ == kFieldDepth && fieldIsArray_) {
      sink_.item(key_, value);
    }
    position_ = value.position;
    return true;
  }

  void enter() {
    if (++depth_ > file_.limits.maxDepth) {
      file_.fail(position_,
                 fmt::format("more than {} nested arrays and objects", file_.limits.maxDepth));
    }
  }

  bool leave() {
    --depth_;
    file_.tokenTaken();
    return true;
  }

  InputFile& file_;
  Sink& sink_;
  std::size_t depth_ = 0;
  std::size_t elements_ = 0;
  std::string key_;
  bool fieldIsArray_ = false;
  Position position_;
  Position elementPosition_;
};

void parse(InputFile& file, Sink& sink) {
  ElementHandler handler(file, sink);
  nlohmann::json::sax_parse(InputIterator(&file), InputIterator(nullptr), &handler);
}

// ---- What the sinks share ----

struct Text {
  std::string text;
  Position position;
};

// Fields of one element, each at most once and of its type.
class Fields {
 public:
  explicit Fields(const InputFile& file) : file_(file) {}

  void text(const std::string& key, const Value& value, std::optional<Text>& into) const {
    if (value.kind != Value::Kind::kText) {
      failOfType(key, value, "a text");
    }
    if (value.text.empty()) {
      file_.fail(value.position, fmt::format("{:?} is empty", key));
    }
    once(key, value, into.has_value());
    into = Text{std::string(value.text), value.position};
  }

  void array(const std::string& key, const Value& value, bool& isThere) const {
    if (value.kind != Value::Kind::kArray) {
      failOfType(key, value, "an array");
    }
    once(key, value, isThere);
    isThere = true;
  }

  // ip prints a mark as a key with null; true says the same.
  void mark(const std::string& key, const Value& value, bool& isThere) const {
    if (value.kind != Value::Kind::kNull && value.kind != Value::Kind::kBoolean) {
      failOfType(key, value, "null or true");
    }
    once(key, value, isThere);
    isThere = value.kind == Value::Kind::kNull || value.text == kTrue;
  }

  void once(const std::string& key, const Value& value, bool isThere) const {
    if (isThere) {
      file_.fail(value.position, fmt::format("{:?} is given twice", key));
    }
  }

  void itemIsText(const std::string& key, const Value& value) const {
    if (value.kind != Value::Kind::kText) {
      file_.fail(value.position,
                 fmt::format("an item of {:?} is {}, not a text", key, value.describe()));
    }
  }

  [[noreturn]] void failOfType(const std::string& key, const Value& value,
                               std::string_view wanted) const {
    file_.fail(value.position, fmt::format("{:?} is {}, not {}", key, value.describe(), wanted));
  }

 private:
  const InputFile& file_;
};

std::optional<Wirex::IntfId> intfIdOf(const std::string& name) {
  try {
    return Wirex::IntfId::fromName(name);
  } catch (const Wirex::IntfNameError&) {
    return std::nullopt;
  }
}

// ---- Links ----

class LinkSink : public Sink {
 public:
  LinkSink(const InputFile& file, Snapshot& snapshot)
      : file_(file), fields_(file), snapshot_(snapshot) {}

  void elementBegin() override { element_ = {}; }

  void field(const std::string& key, const Value& value) override {
    if (key == "ifname") {
      fields_.text(key, value, element_.name);
    } else if (key == "operstate") {
      fields_.text(key, value, element_.state);
    } else if (key == "flags") {
      fields_.array(key, value, element_.hasFlags);
    }
  }

  void item(const std::string& key, const Value& value) override {
    if (key == "flags") {
      fields_.itemIsText(key, value);
      element_.isStarted = element_.isStarted || value.text == "UP";
      element_.hasCarrier = element_.hasCarrier || value.text == "LOWER_UP";
    }
  }

  void elementEnd(Position position) override {
    if (!element_.name) {
      file_.fail(position, "this link has no \"ifname\"");
    }
    const auto& name = element_.name->text;
    if (!names_.insert(name).second) {
      file_.fail(element_.name->position, fmt::format("link {} is given twice", quote(name)));
    }
    if (const auto intf = intfIdOf(name)) {
      snapshot_.links.push_back({name, *intf, isUp()});
    } else {
      ++snapshot_.skippedLinks;
    }
  }

 private:
  struct Element {
    std::optional<Text> name;
    std::optional<Text> state;
    bool hasFlags = false;
    bool isStarted = false;
    bool hasCarrier = false;
  };

  bool isUp() const {
    if (element_.state && element_.state->text != "UNKNOWN") {
      return element_.state->text == "UP";
    }
    return element_.isStarted && element_.hasCarrier;
  }

  const InputFile& file_;
  Fields fields_;
  Snapshot& snapshot_;
  Element element_;
  std::unordered_set<std::string> names_;
};

// ---- Next hops ----

struct Number {
  std::string_view name;
  std::uint8_t value;
};

// The kernel's numbers by the names that ip gives them.
constexpr Number kProtocols[] = {
    {"redirect", 1}, {"kernel", 2}, {"boot", 3},    {"static", 4},   {"gated", 8},
    {"ra", 9},       {"mrt", 10},   {"zebra", 11},  {"bird", 12},    {"dnrouted", 13},
    {"xorp", 14},    {"ntk", 15},   {"dhcp", 16},   {"mrouted", 17}, {"keepalived", 18},
    {"babel", 42},   {"ovn", 84},   {"openr", 99},  {"bgp", 186},    {"isis", 187},
    {"ospf", 188},   {"rip", 189},  {"eigrp", 192},
};
constexpr Number kScopes[] = {
    {"global", 0}, {"site", 200}, {"link", 253}, {"host", 254}, {"nowhere", 255}};
constexpr Number kFlags[] = {
    {"dead", NextHop::kFlagDead},         {"pervasive", NextHop::kFlagPervasive},
    {"onlink", NextHop::kFlagOnlink},     {"offload", NextHop::kFlagOffload},
    {"linkdown", NextHop::kFlagLinkdown}, {"unresolved", NextHop::kFlagUnresolved},
    {"trap", NextHop::kFlagTrap},
};

// The number of a name, or the number that ip prints where it has no name; otherwise `unknown`.
template <std::size_t kSize>
std::uint8_t numberOf(const Number (&numbers)[kSize], std::string_view name, std::uint8_t unknown) {
  const auto* const known = std::ranges::find(numbers, name, &Number::name);
  if (known != std::end(numbers)) {
    return known->value;
  }
  std::uint8_t value = 0;
  const char* const end = name.data() + name.size();
  const auto result = std::from_chars(name.data(), end, value);
  return result.ec == std::errc() && result.ptr == end ? value : unknown;
}

class NextHopSink : public Sink {
 public:
  NextHopSink(const InputFile& file, Snapshot& snapshot)
      : file_(file), fields_(file), snapshot_(snapshot) {}

  void elementBegin() override { element_ = {}; }

  void field(const std::string& key, const Value& value) override {
    if (key == "id") {
      takeId(value);
    } else if (key == "dev") {
      fields_.text(key, value, element_.dev);
    } else if (key == "gateway") {
      fields_.text(key, value, element_.gateway);
    } else if (key == "protocol") {
      fields_.text(key, value, element_.protocol);
    } else if (key == "scope") {
      fields_.text(key, value, element_.scope);
    } else if (key == "flags") {
      fields_.array(key, value, element_.hasFlags);
    } else if (key == "group") {
      fields_.array(key, value, element_.isGroup);
    } else if (key == "blackhole") {
      fields_.mark(key, value, element_.isBlackhole);
    } else if (key == "fdb") {
      fields_.mark(key, value, element_.isFdb);
    } else if (key == "encap") {
      element_.hasEncap = true;
    } else if (key == "via") {
      element_.hasVia = true;
    }
  }

  void item(const std::string& key, const Value& value) override {
    if (key == "flags") {
      fields_.itemIsText(key, value);
      const auto* const known = std::ranges::find(kFlags, value.text, &Number::name);
      element_.flags |= known == std::end(kFlags) ? NextHop::kFlagOther : known->value;
    }
  }

  void elementEnd(Position position) override {
    if (!element_.id) {
      file_.fail(position, "this next hop has no \"id\"");
    }
    if (const char* kind = skippedWithoutInterface()) {
      ++snapshot_.skippedByKind[kind];
      return;
    }
    if (!element_.dev) {
      file_.fail(position, fmt::format("next hop {} has no \"dev\", and is not a group, "
                                       "blackhole or fdb",
                                       *element_.id));
    }
    NextHop nextHop;
    if (const char* kind = fill(nextHop)) {
      ++snapshot_.skippedByKind[kind];
      return;
    }
    snapshot_.nextHops.push_back(nextHop);
  }

 private:
  struct Element {
    std::optional<std::uint32_t> id;
    std::optional<Text> dev;
    std::optional<Text> gateway;
    std::optional<Text> protocol;
    std::optional<Text> scope;
    std::uint8_t flags = 0;
    bool hasFlags = false;
    bool isGroup = false;
    bool isBlackhole = false;
    bool isFdb = false;
    bool hasEncap = false;
    bool hasVia = false;
  };

  void takeId(const Value& value) {
    constexpr auto kMaxId = std::numeric_limits<std::uint32_t>::max();
    if (value.kind != Value::Kind::kWholeNumber || value.number == 0 || value.number > kMaxId) {
      fields_.failOfType("id", value, fmt::format("a whole number from 1 to {}", kMaxId));
    }
    fields_.once("id", value, element_.id.has_value());
    element_.id = static_cast<std::uint32_t>(value.number);
    if (!ids_.insert(*element_.id).second) {
      file_.fail(value.position, fmt::format("next hop {} is given twice", value.number));
    }
  }

  // The kind of a next hop that needs no interface, null for any other.
  const char* skippedWithoutInterface() const {
    if (element_.isGroup) {
      return kSkippedGroup;
    }
    if (element_.isBlackhole) {
      return kSkippedBlackhole;
    }
    return element_.isFdb ? kSkippedFdb : nullptr;
  }

  // Fills a next hop that has an interface; gives the kind if there is something that it has no
  // room for.
  const char* fill(NextHop& nextHop) const {
    if (element_.hasEncap) {
      return kSkippedEncap;
    }
    if (element_.hasVia) {
      return kSkippedVia;
    }
    if (element_.gateway && !fillGateway(*element_.gateway, nextHop)) {
      return kSkippedIpv6Gateway;
    }
    const auto intf = intfIdOf(element_.dev->text);
    if (!intf) {
      return kSkippedInterfaceName;
    }
    nextHop.id = *element_.id;
    nextHop.intf = *intf;
    nextHop.flags = element_.flags;
    if (element_.protocol) {
      nextHop.protocol = numberOf(kProtocols, element_.protocol->text, 0);
    }
    if (element_.scope) {
      nextHop.scope = numberOf(kScopes, element_.scope->text, 0);
    }
    return nullptr;
  }

  // False for an IPv6 gateway.
  bool fillGateway(const Text& gateway, NextHop& nextHop) const {
    in6_addr address6{};
    if (inet_pton(AF_INET6, gateway.text.c_str(), &address6) == 1) {
      return false;
    }
    in_addr address{};
    if (inet_pton(AF_INET, gateway.text.c_str(), &address) != 1) {
      file_.fail(gateway.position,
                 fmt::format("\"gateway\" is {}, which is not an address", quote(gateway.text)));
    }
    nextHop.hasGateway = true;
    nextHop.gateway = ntohl(address.s_addr);
    return true;
  }

  const InputFile& file_;
  Fields fields_;
  Snapshot& snapshot_;
  Element element_;
  std::unordered_set<std::uint32_t> ids_;
};

}  // namespace

Snapshot readSnapshot(const std::string& linksFile, const std::string& nextHopsFile,
                      const InputLimits& limits) {
  Snapshot snapshot;
  InputFile links(linksFile, "ip -j link", limits);
  LinkSink linkSink(links, snapshot);
  parse(links, linkSink);

  InputFile nextHops(nextHopsFile, "ip -j nexthop", limits);
  NextHopSink nextHopSink(nextHops, snapshot);
  parse(nextHops, nextHopSink);
  return snapshot;
}

}  // namespace Captures
