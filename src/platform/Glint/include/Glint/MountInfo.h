// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Pell/String.h"

namespace Glint {
class Table;
}

namespace ZevGlint {

// Raised by a mount that is not possible. what() names the file, says what is wrong with it, and
// what to do. Nothing has been changed or created then.
class MountException : public std::runtime_error {
 public:
  explicit MountException(const Pell::String& message) : std::runtime_error(message) {}
};

// How an entity is mounted.
enum class ZevGlintType : std::uint8_t {
  writer = 0,  // creates the table when there is none; one process per root folder
  reader = 1,  // maps an existing table read-only; any number, whether a writer lives or not
};

// A collection of rows within an entity.
//
// Kind: value type.
class CollectionInfo {
 public:
  // The capacity is the nominal one, at least 1; the file has room for more rows than that. A
  // reader may give 0, which accepts the capacity of the file.
  CollectionInfo(Pell::String name, std::uint32_t capacity)
      : name_(std::move(name)), capacity_(capacity) {}

  const Pell::String& name() const { return name_; }
  std::uint32_t capacity() const { return capacity_; }

 private:
  Pell::String name_;
  std::uint32_t capacity_;
};

// The request of a mount: the type and the collections. An entity has exactly one collection.
//
// Kind: value type.
class MountInfo {
 public:
  explicit MountInfo(ZevGlintType type) : type_(type) {}

  ZevGlintType type() const { return type_; }
  const std::vector<CollectionInfo>& collectionInfo() const { return collectionInfo_; }
  // Inserts, or replaces the collection of that name.
  void collectionInfoIs(const CollectionInfo& info);

 private:
  ZevGlintType type_;
  std::vector<CollectionInfo> collectionInfo_;
};

// The part that belongs to a collection as a whole: the scratchpad, 64 bits to which its user gives
// a meaning.
//
// Kind: part of a map, with the map's life.
// Threads: as the map.
// Invariants: a reader that sees a value finds every row that was written before it.
class CollectionControl {
 public:
  explicit CollectionControl(std::shared_ptr<Glint::Table> table) : table_(std::move(table)) {}

  // 0 for a new collection. Throws Pell::CorruptionDetectedException when the bytes are damaged.
  std::uint64_t scratchpad() const;
  // Takes effect at one store; writer mounts only (asserted).
  void scratchpadIs(std::uint64_t value);

 private:
  std::shared_ptr<Glint::Table> table_;
};

}  // namespace ZevGlint
