// One mutex guards everything: what it covers is a few look-ups, and a search for a cycle sees all
// waits at one moment.
//
//   PartLocks   a part of a file in which something is locked or waited for
//   Record      one of its records: who holds it, and the queue
//   Owner       what one session or branch holds, and what it waits for
//
// A part and a record exist as long as somebody holds or wants them.
#include "agent/locks/lock_table.h"

#include <algorithm>
#include <condition_variable>
#include <list>
#include <mutex>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace nox::agent {

namespace {

struct PartName {
  std::string account;
  FilePart file;

  bool operator==(const PartName& other) const {
    return file == other.file && account == other.account;
  }
};

struct PartNameHash {
  std::size_t operator()(const PartName& name) const {
    const std::hash<std::string> hash;
    constexpr std::size_t kSpread = 0x9E3779B97F4A7C15u;
    return (hash(name.account) * kSpread + hash(name.file.file)) * 2 +
           (name.file.part == Part::Dict ? 1 : 0);
  }
};

bool isHeld(LockOutcome outcome) {
  return outcome != LockOutcome::Locked && outcome != LockOutcome::Deadlock;
}

}  // namespace

struct LockTable::Impl {
  struct Owner;
  struct PartLocks;
  struct Record;

  struct Holder {
    Owner* owner;
    LockKind kind;
  };

  /// Lies on the stack of the thread that waits.
  struct Wait {
    Owner* owner;
    LockKind kind;
    PartLocks* part;
    Record* record;  // null: the part as a whole
    bool granted = false;
    std::condition_variable changed{};
  };
  using Queue = std::list<Wait*>;

  struct Record {
    const std::string* id = nullptr;  // its key in the part
    std::vector<Holder> holders;
    Queue queue;  // upgrades first: nobody else can be served before them

    Holder* holder(const Owner& owner) {
      for (Holder& held : holders) {
        if (held.owner == &owner) return &held;
      }
      return nullptr;
    }
  };

  struct PartLocks {
    const PartName* name = nullptr;  // its key in the table
    std::unordered_map<std::string, Record> records;
    std::size_t owners = 0;   // that hold records of it
    Owner* holder = nullptr;  // who has the part as a whole
    Queue queue;              // who wants it as a whole
  };

  struct Owner {
    LockOwner id = 0;
    std::unordered_map<PartLocks*, std::unordered_set<Record*>> records;
    std::unordered_set<PartLocks*> parts;  // as a whole
    Wait* wait = nullptr;
    const std::string* turn = nullptr;  // the account in which it waits for the writer
    bool cancelled = false;
    std::uint64_t seen = 0;  // the last search that came by

    bool isWaiting() const { return (wait != nullptr || turn != nullptr) && !cancelled; }
  };

  /// What somebody waits for, or is about to: a record, a part as a whole, or the writer's turn.
  struct Wanted {
    PartLocks* part = nullptr;
    Record* record = nullptr;
    const std::string* turn = nullptr;
  };
  static Wanted wantedBy(const Owner& owner) {
    if (owner.wait == nullptr) return {nullptr, nullptr, owner.turn};
    return {owner.wait->part, owner.wait->record, nullptr};
  }

  mutable std::mutex mutex;
  LockOwner lastOwner = 0;
  std::unordered_map<LockOwner, std::unique_ptr<Owner>> owners;
  std::unordered_map<PartName, PartLocks, PartNameHash> parts;
  std::unordered_map<std::string, LockOwner> writers;  // by account
  std::size_t held = 0;
  std::uint64_t searches = 0;

  Owner& ownerOf(LockOwner id) {
    std::unique_ptr<Owner>& owner = owners[id];
    if (!owner) {
      owner = std::make_unique<Owner>();
      owner->id = id;
    }
    return *owner;
  }

  Owner* findOwner(LockOwner id) const {
    const auto found = owners.find(id);
    return found == owners.end() ? nullptr : found->second.get();
  }

  PartLocks& partOf(const RecordLock& record) {
    const auto [found, added] = parts.try_emplace({record.account, record.file});
    if (added) found->second.name = &found->first;
    return found->second;
  }

  PartLocks* findPart(const std::string& account, const FilePart& file) {
    const auto found = parts.find(PartName{account, file});
    return found == parts.end() ? nullptr : &found->second;
  }

  static Record& recordOf(PartLocks& part, const std::string& id) {
    const auto [found, added] = part.records.try_emplace(id);
    if (added) found->second.id = &found->first;
    return found->second;
  }

  // What may be granted.

  static bool isFreeFor(const PartLocks& part, const Record& record, const Owner& owner,
                        LockKind kind) {
    if (part.holder && part.holder != &owner) return false;
    return std::all_of(record.holders.begin(), record.holders.end(), [&](const Holder& other) {
      return other.owner == &owner || (kind == LockKind::Shared && other.kind == LockKind::Shared);
    });
  }

  /// Whether nobody else holds a record of the part.
  static bool isFreeOfOthers(PartLocks& part, const Owner* owner) {
    return part.owners == (owner && owner->records.count(&part) > 0 ? 1u : 0u);
  }

  // Granting and taking back.

  LockOutcome grant(PartLocks& part, Record& record, Owner& owner, LockKind kind) {
    if (Holder* const mine = record.holder(owner)) {
      mine->kind = kind;
      return LockOutcome::Upgraded;
    }
    record.holders.push_back({&owner, kind});
    noteGranted(part, record, owner);
    ++held;
    return LockOutcome::Granted;
  }

  static void noteGranted(PartLocks& part, Record& record, Owner& owner) {
    std::unordered_set<Record*>& records = owner.records[&part];
    if (records.empty()) ++part.owners;
    records.insert(&record);
  }

  static void noteTaken(PartLocks& part, Record& record, Owner& owner) {
    const auto records = owner.records.find(&part);
    records->second.erase(&record);
    if (!records->second.empty()) return;
    owner.records.erase(records);
    --part.owners;
  }

  void grant(PartLocks& part, Owner& owner) {
    part.holder = &owner;
    owner.parts.insert(&part);
    ++held;
  }

  static void wake(Wait& wait) {
    wait.granted = true;
    wait.owner->wait = nullptr;  // at once: a search must not take it for a waiting one
    wait.changed.notify_one();
  }

  /// Grants what the head of the queue waits for, as far as it goes.
  void serve(PartLocks& part, Record& record) {
    while (!record.queue.empty()) {
      Wait& first = *record.queue.front();
      if (!isFreeFor(part, record, *first.owner, first.kind)) return;
      grant(part, record, *first.owner, first.kind);
      record.queue.pop_front();
      wake(first);
    }
  }

  void serve(PartLocks& part) {
    if (part.queue.empty()) return;
    Wait& first = *part.queue.front();
    if (part.holder || !isFreeOfOthers(part, first.owner)) return;
    grant(part, *first.owner);
    part.queue.pop_front();
    wake(first);
  }

  void forgetIfUnused(PartLocks& part, Record& record) {
    if (record.holders.empty() && record.queue.empty()) part.records.erase(*record.id);
  }

  void forgetIfUnused(PartLocks& part) {
    if (part.records.empty() && !part.holder && part.queue.empty()) parts.erase(*part.name);
  }

  /// Takes the record from its holder and serves who waits for it. The part stays.
  void takeBack(PartLocks& part, Record& record, Owner& owner) {
    const auto mine = std::find_if(record.holders.begin(), record.holders.end(),
                                   [&](const Holder& other) { return other.owner == &owner; });
    *mine = record.holders.back();
    record.holders.pop_back();
    --held;
    serve(part, record);
    forgetIfUnused(part, record);
  }

  void release(PartLocks& part, Record& record, Owner& owner) {
    noteTaken(part, record, owner);
    takeBack(part, record, owner);
    serve(part);
  }

  /// All records of the part that the owner holds.
  void releaseRecords(PartLocks& part, Owner& owner) {
    const auto found = owner.records.find(&part);
    if (found == owner.records.end()) return;
    const std::unordered_set<Record*> records = std::move(found->second);
    owner.records.erase(found);
    --part.owners;
    for (Record* const record : records) takeBack(part, *record, owner);
    serve(part);
  }

  void releaseWhole(PartLocks& part, Owner& owner) {
    if (part.holder != &owner) return;
    part.holder = nullptr;
    owner.parts.erase(&part);
    --held;
    serve(part);
    for (auto& [id, record] : part.records) serve(part, record);
  }

  /// Gives a lock that went with `heir` back to `left`.
  static void moveBack(PartLocks& part, const std::string& id, Owner& heir, Owner& left) {
    if (id.empty()) {
      if (part.holder != &heir) return;
      part.holder = &left;
      heir.parts.erase(&part);
      left.parts.insert(&part);
      return;
    }
    const auto found = part.records.find(id);
    if (found == part.records.end()) return;
    Record& record = found->second;
    Holder* const holder = record.holder(heir);
    if (!holder) return;
    holder->owner = &left;
    noteTaken(part, record, heir);
    noteGranted(part, record, left);
  }

  // Waiting.

  /// Whether `asker` would, by waiting, wait for itself. Who waits depends on all holders of what
  /// it waits for, also on those that it could share it with: somebody ahead in the queue could
  /// not. Those ahead lead nowhere else than to the same holders.
  bool closesCycle(Owner& asker, const Wanted& wanted) {
    const std::uint64_t search = ++searches;
    std::vector<Owner*> next;
    bool found = false;
    const auto visit = [&](Owner* from, Owner* to) {
      if (to == from || found) return;
      if (to == &asker) {
        found = true;
      } else if (to->isWaiting() && to->seen != search) {
        to->seen = search;
        next.push_back(to);
      }
    };
    const auto visitWriter = [&](Owner* from, const std::string& account) {
      const auto writer = writers.find(account);
      if (writer == writers.end()) return;
      if (Owner* const owner = findOwner(writer->second)) visit(from, owner);
    };
    const auto visitBlockers = [&](Owner* from, const Wanted& what) {
      if (what.turn) return visitWriter(from, *what.turn);
      if (what.part->holder) visit(from, what.part->holder);
      if (what.record) {
        for (const Holder& holder : what.record->holders) visit(from, holder.owner);
      } else {
        for (const auto& [id, owner] : owners) {
          if (owner->records.count(what.part) > 0) visit(from, owner.get());
        }
      }
    };
    visitBlockers(&asker, wanted);
    while (!found && !next.empty()) {
      Owner* const owner = next.back();
      next.pop_back();
      visitBlockers(owner, wantedBy(*owner));
    }
    return found;
  }

  /// Stands in `queue` at `place` until the lock is granted (true), the time is over or the owner
  /// is cancelled.
  static bool standInQueue(std::unique_lock<std::mutex>& lock, Wait& wait, Queue& queue,
                           Queue::iterator place, std::chrono::milliseconds time) {
    const auto deadline = std::chrono::steady_clock::now() + time;
    const auto mine = queue.insert(place, &wait);
    wait.owner->wait = &wait;
    wait.changed.wait_until(lock, deadline, [&] { return wait.granted || wait.owner->cancelled; });
    if (wait.granted) return true;
    wait.owner->wait = nullptr;
    queue.erase(mine);
    return false;
  }

  LockOutcome acquire(std::unique_lock<std::mutex>& lock, Owner& owner, PartLocks& part,
                      Record& record, LockKind kind, std::chrono::milliseconds time) {
    const Holder* const mine = record.holder(owner);
    if (mine && (mine->kind == LockKind::Update || kind == LockKind::Shared)) {
      return LockOutcome::HeldAlready;
    }
    if ((mine || record.queue.empty()) && isFreeFor(part, record, owner, kind)) {
      return grant(part, record, owner, kind);
    }
    if (time.count() <= 0 || owner.cancelled) return LockOutcome::Locked;
    if (closesCycle(owner, {&part, &record, nullptr})) return LockOutcome::Deadlock;

    auto place = record.queue.end();
    if (mine) {
      place = std::find_if(record.queue.begin(), record.queue.end(), [&](const Wait* other) {
        return record.holder(*other->owner) == nullptr;
      });
    }
    const bool upgrades = mine != nullptr;
    Wait wait{&owner, kind, &part, &record};
    if (standInQueue(lock, wait, record.queue, place, time)) {
      return upgrades ? LockOutcome::Upgraded : LockOutcome::Granted;
    }
    serve(part, record);  // those behind may share what this one could not have
    return LockOutcome::Locked;
  }

  LockOutcome acquireWhole(std::unique_lock<std::mutex>& lock, Owner& owner, PartLocks& part,
                           std::chrono::milliseconds time) {
    if (part.holder == &owner) return LockOutcome::HeldAlready;
    if (!part.holder && part.queue.empty() && isFreeOfOthers(part, &owner)) {
      grant(part, owner);
      return LockOutcome::Granted;
    }
    if (time.count() <= 0 || owner.cancelled) return LockOutcome::Locked;
    if (closesCycle(owner, {&part, nullptr, nullptr})) return LockOutcome::Deadlock;
    Wait wait{&owner, LockKind::Update, &part, nullptr};
    if (standInQueue(lock, wait, part.queue, part.queue.end(), time)) return LockOutcome::Granted;
    serve(part);
    return LockOutcome::Locked;
  }

  // Looking.

  static HeldLock describe(const PartLocks& part, const Record& record, const Holder& holder) {
    return {{part.name->account, part.name->file, *record.id},
            holder.kind,
            holder.owner->id,
            record.queue.size()};
  }

  static HeldLock describe(const PartLocks& part) {
    return {{part.name->account, part.name->file, {}},
            LockKind::Update,
            part.holder->id,
            part.queue.size()};
  }
};

LockTable::LockTable() : impl_(std::make_unique<Impl>()) {}

LockTable::~LockTable() = default;

LockOwner LockTable::newOwner() {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  return ++impl_->lastOwner;
}

LockOutcome LockTable::acquire(LockOwner owner, const RecordLock& record, LockKind kind,
                               std::chrono::milliseconds wait) {
  std::unique_lock<std::mutex> lock(impl_->mutex);
  Impl::Owner& asker = impl_->ownerOf(owner);
  Impl::PartLocks& part = impl_->partOf(record);
  LockOutcome outcome{};
  if (record.id.empty()) {
    outcome = impl_->acquireWhole(lock, asker, part, wait);
  } else {
    Impl::Record& wanted = Impl::recordOf(part, record.id);
    outcome = impl_->acquire(lock, asker, part, wanted, kind, wait);
    if (!isHeld(outcome)) impl_->forgetIfUnused(part, wanted);
  }
  // What was granted to one that waited may have been released by others before it woke, with the
  // record and the part forgotten.
  if (!isHeld(outcome)) impl_->forgetIfUnused(part);
  return outcome;
}

void LockTable::release(LockOwner owner, const RecordLock& record) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  Impl::Owner* const holder = impl_->findOwner(owner);
  Impl::PartLocks* const part = impl_->findPart(record.account, record.file);
  if (!holder || !part) return;
  if (record.id.empty()) {
    impl_->releaseWhole(*part, *holder);
  } else {
    const auto found = part->records.find(record.id);
    if (found == part->records.end() || !found->second.holder(*holder)) return;
    impl_->release(*part, found->second, *holder);
  }
  impl_->forgetIfUnused(*part);
}

void LockTable::release(LockOwner owner, const std::string& account, const FilePart& file) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  Impl::Owner* const holder = impl_->findOwner(owner);
  Impl::PartLocks* const part = impl_->findPart(account, file);
  if (!holder || !part) return;
  impl_->releaseRecords(*part, *holder);
  impl_->releaseWhole(*part, *holder);
  impl_->forgetIfUnused(*part);
}

void LockTable::releaseAll(LockOwner owner) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  Impl::Owner* const holder = impl_->findOwner(owner);
  if (!holder) return;
  while (!holder->records.empty()) {
    Impl::PartLocks& part = *holder->records.begin()->first;
    impl_->releaseRecords(part, *holder);
    impl_->forgetIfUnused(part);
  }
  while (!holder->parts.empty()) {
    Impl::PartLocks& part = **holder->parts.begin();
    impl_->releaseWhole(part, *holder);
    impl_->forgetIfUnused(part);
  }
  impl_->owners.erase(owner);
}

void LockTable::transfer(LockOwner from, LockOwner to, const std::vector<RecordLock>& keep) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  const auto found = impl_->owners.find(from);
  if (found == impl_->owners.end()) return;
  // The holders point at the owner, which goes on under the other name.
  std::unique_ptr<Impl::Owner> moved = std::move(found->second);
  impl_->owners.erase(found);
  moved->id = to;
  Impl::Owner& heir = *(impl_->owners[to] = std::move(moved));
  Impl::Owner& left = impl_->ownerOf(from);
  std::swap(left.cancelled, heir.cancelled);

  for (const RecordLock& kept : keep) {
    Impl::PartLocks* const part = impl_->findPart(kept.account, kept.file);
    if (part) impl_->moveBack(*part, kept.id, heir, left);
  }
}

void LockTable::setWriter(const std::string& account, LockOwner owner) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->writers[account] = owner;
}

void LockTable::clearWriter(const std::string& account, LockOwner owner) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  const auto found = impl_->writers.find(account);
  if (found != impl_->writers.end() && found->second == owner) impl_->writers.erase(found);
}

bool LockTable::beginWaitForWriter(LockOwner owner, const std::string& account) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  Impl::Owner& asker = impl_->ownerOf(owner);
  if (impl_->closesCycle(asker, {nullptr, nullptr, &account})) return false;
  asker.turn = &account;
  return true;
}

void LockTable::endWaitForWriter(LockOwner owner) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  if (Impl::Owner* const waited = impl_->findOwner(owner)) waited->turn = nullptr;
}

void LockTable::cancel(LockOwner owner) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  Impl::Owner& cancelled = impl_->ownerOf(owner);
  cancelled.cancelled = true;
  if (cancelled.wait) cancelled.wait->changed.notify_one();
}

std::vector<HeldLock> LockTable::heldBy(LockOwner owner) const {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  std::vector<HeldLock> locks;
  Impl::Owner* const holder = impl_->findOwner(owner);
  if (!holder) return locks;
  for (const Impl::PartLocks* const part : holder->parts) locks.push_back(Impl::describe(*part));
  for (const auto& [part, records] : holder->records) {
    for (Impl::Record* const record : records) {
      locks.push_back(Impl::describe(*part, *record, *record->holder(*holder)));
    }
  }
  return locks;
}

std::vector<HeldLock> LockTable::list(const std::string& account, const std::string& file) const {
  std::vector<HeldLock> locks;
  {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    for (const auto& [name, part] : impl_->parts) {
      if (name.account != account || (!file.empty() && name.file.file != file)) continue;
      if (part.holder) locks.push_back(Impl::describe(part));
      for (const auto& [id, record] : part.records) {
        for (const Impl::Holder& holder : record.holders) {
          locks.push_back(Impl::describe(part, record, holder));
        }
      }
    }
  }
  const auto order = [](const HeldLock& lock) {
    return std::tie(lock.record.file.file, lock.record.file.part, lock.record.id, lock.owner);
  };
  std::sort(locks.begin(), locks.end(),
            [&](const HeldLock& a, const HeldLock& b) { return order(a) < order(b); });
  return locks;
}

std::size_t LockTable::size() const {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->held;
}

}  // namespace nox::agent
