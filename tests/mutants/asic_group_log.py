FILE = "src/framework/Asic/GroupLog.cpp"
TESTS = ["FecTableEntryLogTest", "AgentCrashTest"]

MUTANTS = [
    ("group log's rows go before the applied version is there",
     """  versions_->appliedVersions().rowIs(GroupVersionRow(applied));
  raiseAnnounced(applied);
  std::deque<Pending>& rows = tables_[applied.tableId()].rows;
  while (!rows.empty() && rows.front().version <= applied.logVersion()) {
    log_->groupLog().rowDel(rows.front().sequence);
    rows.pop_front();
  }
""",
     """  raiseAnnounced(applied);
  std::deque<Pending>& rows = tables_[applied.tableId()].rows;
  while (!rows.empty() && rows.front().version <= applied.logVersion()) {
    log_->groupLog().rowDel(rows.front().sequence);
    rows.pop_front();
  }
  versions_->appliedVersions().rowIs(GroupVersionRow(applied));
"""),
]
