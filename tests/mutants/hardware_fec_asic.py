# SPDX-License-Identifier: Apache-2.0

FILE = "hardware/FecAsic.cpp"
TESTS = ["HardwareTest"]

MUTANTS = [
    ("a refusal is forgotten by an empty flush", """  if (waiting_.empty()) {
    return !refused_;
  }
""", """  if (waiting_.empty()) {
    refused_ = false;
    return true;
  }
"""),
    ("what is refused does not wait on", "waiting_.begin() + static_cast<std::ptrdiff_t>(done));",
     "waiting_.end());"),
    ("what is taken waits on", """  waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(done));
""", ""),
    ("a refusal is not seen", "refused_ = done < waiting_.size();", "refused_ = false;"),
    ("a removal is a write", "waiting_.push_back({AsicDriver::Change::Kind::remove, unitId, entry, version});",
     "waiting_.push_back({AsicDriver::Change::Kind::write, unitId, entry, version});"),
]
