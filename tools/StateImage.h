// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Asic/Versions.h"
#include "offline/TableImage.h"
#include "tools/TableRole.h"

namespace Tools {

// Why a state folder cannot be judged: it does not exist, it may not be read, or its agent did not
// leave it unchanged for long enough.
class CannotTell : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One table file of a state folder.
struct TableFile {
  std::string name;
  TableRole role = TableRole::other;
  Asic::UnitId unit;  // of a configuration table
  // Why it cannot be read: a symbolic link, a damaged header, rows of another kind. Empty if it
  // can.
  std::string fault;
  // The fault is not the file's: this process has no permission, memory or descriptor to read it.
  bool unreadable = false;
  std::unique_ptr<Glint::TableImage> image;  // null with a fault
};

// The layout with which the agent mounts a table of that role; nothing for other roles.
std::optional<Glint::TableLayout> layoutOf(TableRole role);

// All tables of a state folder as they stood at one moment. Changes nothing, and makes no agent
// wait.
//
// Kind: object; the copies live as long as it does.
class StateImage {
 public:
  // Looks again, up to kMaxLooks times within about two seconds, until no agent changes anything
  // during the look. Throws CannotTell. `whileLooking` is called within each look, when everything
  // has been copied and nothing compared yet: for tests.
  explicit StateImage(const std::string& folder, const std::function<void()>& whileLooking = {});
  // The same for a process that holds the writer lock: unfinished changes were left by a kill and
  // stay unfinished.
  static StateImage underOwnLock(const std::string& folder) { return {folder, {}, true}; }
  static constexpr int kMaxLooks = 120;

  const std::string& folder() const { return folder_; }
  const std::vector<TableFile>& tables() const { return tables_; }  // by name
  // Null if there is none.
  const TableFile* table(TableRole role, Asic::UnitId unit = Asic::UnitId()) const;
  // Tables that are missing although a table that an agent makes later exists. An agent makes group
  // log, applied versions, log and configuration tables, in this order. The last of them comes
  // first.
  std::vector<TableRole> missingTables() const;
  static constexpr const char* kMissingTable =
      "it is missing, but tables that are made after it exist";
  // Files that a killed agent or repair was creating, and copies that a repair has kept; by name.
  const std::vector<std::string>& unfinished() const { return names_.unfinished; }
  const std::vector<std::string>& kept() const { return names_.kept; }
  // The holder of the writer lock; nothing if there is none.
  const std::optional<std::string>& writer() const { return writer_; }
  int looks() const { return looks_; }

 private:
  struct Names {
    std::vector<std::string> tables;
    std::vector<std::string> unfinished;
    std::vector<std::string> kept;
    bool lockFile = false;
    friend bool operator==(const Names&, const Names&) = default;
  };

  StateImage(std::string folder, const std::function<void()>& whileLooking, bool ownsLock);

  Names list() const;
  bool look(const std::function<void()>& whileLooking);

  std::string folder_;
  bool ownsLock_;
  Names names_;
  std::vector<TableFile> tables_;
  std::optional<std::string> writer_;
  int looks_ = 0;
};

}  // namespace Tools
