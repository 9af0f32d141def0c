// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>

#include "Pell/Publisher.h"
#include "Zev/EventLoop.h"
#include "fec/FecTableInterface.h"

namespace Agent {

// Final answer to one request.
enum class Answer {
  programmed,  // the hardware has it
  failed,      // the commit refused it
  superseded,  // a later request of the key took its place before it was passed on
};

// Takes the requests of the agent's clients to one unit's FEC table.
//
// The table commits operations in the order in which they are resolved, so two operations of one
// key could overtake each other in it. This class passes on at most one operation per key at a
// time; a later request of the key waits, and replaces one that waits already. While the table is
// suspended nothing new is passed on. A write for which the table might have no configuration row
// is refused.
//
// Kind: object with identity.
// Ownership: holds the table; a client that ends answers nobody any more.
// Threads: the event loop's. Answers come from turns of the loop, or inside the call for
// Answer::superseded and for a refused write.
// Invariants: every accepted request is answered once, or is still waiting.
class FecClient {
 public:
  using Key = LoamFec::FecTableDataModelEntryKey;
  using Entry = LoamFec::FecTableDataModelEntry;
  // The version under which the request was logged; 0 unless the answer is programmed.
  using AnswerHandler = std::function<void(Answer, Asic::LogVersion)>;

  // Requests that were held back and are passed on in one turn once the table resumes.
  static constexpr std::uint32_t kResumedPerTurn = 1024;

  FecClient(Zev::EventLoop& loop, const Pell::Ptr<LoamFec::FecTableSwTable>& table);
  FecClient(const FecClient&) = delete;
  FecClient& operator=(const FecClient&) = delete;
  ~FecClient();

  // Writes the entry under the key, whatever key is in the entry. False, and no answer follows, if
  // the unit's table might have no room for another entry. A write of a key whose row is about to
  // be removed keeps the row's place, and may count as one entry more until it is answered.
  [[nodiscard]] bool write(const Key& key, const Entry& entry, AnswerHandler handler);
  // Removing an absent key succeeds.
  void remove(const Key& key, AnswerHandler handler);

  // The entry of the key once every accepted request is done; nothing: it will be absent.
  std::optional<Entry> intended(const Key& key) const;
  // Visits every entry that will be there then, once; visit may not make requests.
  void forEachIntended(const std::function<void(const Entry&)>& visit) const;

  // Accepted requests without an answer yet.
  std::uint32_t unanswered() const { return unanswered_; }
  // Visits the keys of the writes among them, with the entry to be written.
  void forEachUnansweredWrite(const std::function<void(const Entry&)>& visit) const;

 private:
  struct Request {
    std::optional<Entry> entry;  // nothing: a remove
    AnswerHandler handler;
  };
  // A key with a request that is not answered. One of the two is there.
  struct Slot {
    std::optional<Request> inTable;
    std::optional<Request> waiting;
    bool isNewKey = false;  // may need a configuration row that is not there, or will have gone

    // The table has a remove of the key. One that waits here gives way to the next request.
    bool isBeingRemoved() const { return inTable && !inTable->entry; }
    const Request& newest() const { return waiting ? *waiting : *inTable; }
  };

  void accept(const Key& key, Request request, bool isNewKey);
  void passOn(const Key& key);
  void answered(const Key& key, Asic::EntryState state, Asic::LogVersion version);
  void resume();

  Pell::Ptr<LoamFec::FecTableSwTable> table_;
  std::unordered_map<std::uint32_t, Slot> slots_;  // by FEC identifier
  std::deque<Key> heldBack_;                       // to pass on when the table resumes
  std::uint32_t unanswered_ = 0;
  std::uint32_t newKeys_ = 0;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  Zev::DeferredTurn resume_;
  Pell::Subscriber statusSubscriber_;
};

}  // namespace Agent
