// SPDX-License-Identifier: Apache-2.0

// Which files make up a state, and copies of them that fit together. A look copies every table and
// then asks each whether it has changed since: if none has, the copies all stand for one instant
// (TableImage.h). An agent at work spoils looks; one that is dead or idle does not.

#include "StateImage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <string_view>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include "Asic/GroupLog.h"
#include "folder/FolderUpkeep.h"
#include "folder/RootFolder.h"
#include "records/FecSharedTables.h"
#include "table/Inspection.h"

namespace Tools {

namespace {

constexpr std::string_view kTableSuffix = ".table";
constexpr auto kLongestPause = std::chrono::milliseconds(20);

// The unit whose configuration table has that file name; nothing for any other file.
std::optional<Asic::UnitId> unitOf(const std::string& name) {
  const std::string first = fileNameOf(TableRole::config);
  const std::size_t at = first.find('0');
  std::uint16_t unit = 0;
  if (name.size() <= at ||
      std::from_chars(name.data() + at, name.data() + name.size(), unit).ec != std::errc()) {
    return std::nullopt;
  }
  const Asic::UnitId found(unit);
  return fileNameOf(TableRole::config, found) == name ? std::optional(found) : std::nullopt;
}

TableFile fileOf(const std::string& name) {
  TableFile file;
  file.name = name;
  for (const TableRole role : {TableRole::log, TableRole::groupLog, TableRole::applied}) {
    if (name == fileNameOf(role)) {
      file.role = role;
    }
  }
  if (const auto unit = unitOf(name)) {
    file.role = TableRole::config;
    file.unit = *unit;
  }
  return file;
}

// A mount's text begins with the path, which the reader of the fault knows already.
std::string withoutPath(const std::string& text, const std::string& path) {
  return text.starts_with(path + ": ") ? text.substr(path.size() + 2) : text;
}

// Of a file that a mount refuses: whether it is so by itself, because it is no regular file or of
// another owner than its folder, and not because of this process, which another may well read.
bool refusedForItself(const std::string& path, const std::string& folder) {
  struct stat file {};
  struct stat parent {};
  if (::lstat(path.c_str(), &file) != 0 || ::lstat(folder.c_str(), &parent) != 0) {
    return false;
  }
  return !S_ISREG(file.st_mode) ||
         (file.st_uid != parent.st_uid &&
          ::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS | AT_SYMLINK_NOFOLLOW) == 0);
}

void openInto(TableFile& file, const Glint::RootFolder& root) {
  const std::string path = root.filePath(file.name);
  try {
    file.image = std::make_unique<Glint::TableImage>(root, file.name);
    file.fault = file.image->fault();
  } catch (const ZevGlint::MountException& error) {
    file.fault = withoutPath(error.what(), path);
    file.unreadable = !refusedForItself(path, root.path());
  }
  if (const auto layout = layoutOf(file.role); layout && file.fault.empty()) {
    file.fault = layoutDifference(file.image->view().fixed(), *layout, file.name);
  }
  if (!file.fault.empty()) {
    file.image = nullptr;
  }
}

template <typename Entity, typename Row>
Glint::TableLayout layoutOfEntity() {
  return Glint::tableLayout<Row>(Entity::kCollectionName, Entity::kCapacity);
}

bool indexUnfinished(const TableFile& file) {
  return file.image != nullptr && (file.image->view().header().generation & 1U) != 0;
}

}  // namespace

std::optional<Glint::TableLayout> layoutOf(TableRole role) {
  switch (role) {
    case TableRole::log:
      return layoutOfEntity<LoamFec::FecTableDataModelEntryLogGlint,
                            LoamFec::FecTableDataModelLogGlintEntry>();
    case TableRole::groupLog:
      return layoutOfEntity<Asic::GroupLogGlint, Asic::GroupLogRow>();
    case TableRole::applied:
      return layoutOfEntity<Asic::GroupVersionsGlint, Asic::GroupVersionRow>();
    case TableRole::config:
      return layoutOfEntity<LoamFec::FecTableDataModelConfigGlint,
                            LoamFec::FecTableDataModelConfigGlintEntry>();
    case TableRole::other:
      break;
  }
  return std::nullopt;
}

StateImage::StateImage(const std::string& folder, const std::function<void()>& whileLooking)
    : StateImage(folder, whileLooking, false) {}

StateImage::StateImage(std::string folder, const std::function<void()>& whileLooking, bool ownsLock)
    : folder_(std::move(folder)), ownsLock_(ownsLock) {
  auto pause = std::chrono::milliseconds(1);
  while (!look(whileLooking)) {
    if (looks_ == kMaxLooks) {
      throw CannotTell(fmt::format(
          "{}: {} changed the tables during each of {} looks; try again when it is less busy",
          folder_, writer_.value_or("a process that holds no lock"), kMaxLooks));
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(2 * pause, kLongestPause);
  }
  if (tables_.empty() && names_.unfinished.empty() && !names_.lockFile) {
    throw CannotTell(fmt::format(
        "{}: it holds no table; name the state folder of an agent with --state", folder_));
  }
}

const TableFile* StateImage::table(TableRole role, Asic::UnitId unit) const {
  const auto found = std::find_if(tables_.begin(), tables_.end(), [&](const TableFile& file) {
    return file.role == role && (role != TableRole::config || file.unit == unit);
  });
  return found == tables_.end() ? nullptr : &*found;
}

std::vector<TableRole> StateImage::missingTables() const {
  std::vector<TableRole> missing;
  bool laterIsThere = std::any_of(tables_.begin(), tables_.end(), [](const TableFile& file) {
    return file.role == TableRole::config;
  });
  for (const TableRole role : {TableRole::log, TableRole::applied, TableRole::groupLog}) {
    const bool isThere = table(role) != nullptr;
    if (laterIsThere && !isThere) {
      missing.push_back(role);
    }
    laterIsThere = laterIsThere || isThere;
  }
  return missing;
}

StateImage::Names StateImage::list() const {
  Names names;
  std::error_code error;
  std::filesystem::directory_iterator at(folder_, error);
  for (; !error && at != std::filesystem::directory_iterator(); at.increment(error)) {
    const std::string name = at->path().filename().string();
    if (name.starts_with(Glint::kUnfinishedPrefix)) {
      names.unfinished.push_back(name);
    } else if (name.ends_with(kTableSuffix)) {
      names.tables.push_back(name);
    } else if (name.find(Glint::kKeptInfix) != std::string::npos) {
      names.kept.push_back(name);
    }
    names.lockFile = names.lockFile || name == Glint::kWriterLockName;
  }
  if (std::error_code ignored; std::filesystem::is_symlink(folder_, ignored)) {
    throw CannotTell(fmt::format("{}: it is a symbolic link; name the folder itself", folder_));
  }
  if (error) {
    throw CannotTell(fmt::format("{}: cannot read the state folder: {}", folder_, error.message()));
  }
  for (auto* list : {&names.tables, &names.unfinished, &names.kept}) {
    std::sort(list->begin(), list->end());
  }
  return names;
}

// False if somebody changed something meanwhile.
bool StateImage::look(const std::function<void()>& whileLooking) {
  ++looks_;
  tables_.clear();
  writer_ = Glint::currentWriter(folder_);
  names_ = list();
  const Glint::RootFolder root(folder_);
  for (const std::string& name : names_.tables) {
    tables_.push_back(fileOf(name));
    openInto(tables_.back(), root);
  }
  for (const TableFile& file : tables_) {
    if (file.image != nullptr) {
      file.image->copy();
    }
  }
  if (whileLooking) {
    whileLooking();
  }
  const bool unchanged = std::all_of(tables_.begin(), tables_.end(), [](const TableFile& file) {
    return file.image == nullptr || file.image->unchanged();
  });
  const bool rebuilding = std::any_of(tables_.begin(), tables_.end(), indexUnfinished);
  writer_ = writer_ ? writer_ : Glint::currentWriter(folder_);
  return unchanged && list() == names_ && !(writer_ && !ownsLock_ && rebuilding);
}

}  // namespace Tools
