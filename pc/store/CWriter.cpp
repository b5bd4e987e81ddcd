#include "store/CWriter.h"

#include <pthread.h>

#include <chrono>
#include <utility>

#include "store/CDatabase.h"
#include "store/CDatabaseError.h"

namespace ZELPC {

namespace {

/// A commit that takes longer is no work for a thread that serves others, too.
constexpr auto kQuick = std::chrono::milliseconds(2);

}  // namespace

CWriter::CWriter(CDatabase& database, std::size_t maxWaitingBytes, Health health)
    : database_(database), maxWaitingBytes_(maxWaitingBytes), health_(std::move(health)), thread_([this] { Loop(); }) {}

void CWriter::End() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

bool CWriter::HasRoom(const Job& job) const {
    return waiting_.size() < kMaxWaiting && (job.bytes == 0 || bytes_ + job.bytes <= maxWaitingBytes_);
}

void CWriter::SubmitJob(Job job, bool atOnce) {
    {
        const std::lock_guard lock(mutex_);
        atOnce = atOnce && quick_ && !writing_ && !blocked_ && waiting_.empty();
        const bool taken = atOnce || HasRoom(job);
        bytes_ += taken ? job.bytes : 0;
        if (atOnce) {
            writing_ = true;
        } else if (taken) {
            waiting_.push_back(std::move(job));
            wake_.notify_one();
            return;
        }
    }
    if (!atOnce) {
        const std::string error = "too much waits to be written";
        job.done(&error);
        return;
    }
    Jobs jobs;
    jobs.push_back(std::move(job));
    Write(jobs);
    const std::lock_guard lock(mutex_);
    writing_ = false;
    if (blocked_) {
        wake_.notify_one();
    }
}

void CWriter::SubmitLater(Work work, Done done, std::chrono::milliseconds pause) {
    const std::lock_guard lock(mutex_);
    later_.emplace(Job{std::move(work), std::move(done), 0, {}});
    laterAt_ = std::chrono::steady_clock::now() + pause;
    wake_.notify_one();
}

void CWriter::Loop() {
    pthread_setname_np(pthread_self(), "store");
    std::unique_lock lock(mutex_);
    for (;;) {
        WaitForWork(lock);
        Jobs jobs = std::exchange(waiting_, {});
        if (later_.has_value() && (ending_ || std::chrono::steady_clock::now() >= laterAt_)) {
            jobs.push_back(std::move(*later_));
            later_.reset();
        }
        if (jobs.empty() && ending_) {
            return;
        }
        writing_ = true;
        lock.unlock();
        Write(jobs);
        lock.lock();
        writing_ = false;
    }
}

void CWriter::WaitForWork(std::unique_lock<std::mutex>& lock) {
    while (!ending_ && waiting_.empty() && (!later_.has_value() || std::chrono::steady_clock::now() < laterAt_)) {
        if (later_.has_value()) {
            wake_.wait_until(lock, laterAt_);
        } else {
            wake_.wait(lock);
        }
    }
    blocked_ = true;
    wake_.wait(lock, [this] { return !writing_; });
    blocked_ = false;
}

void CWriter::Write(Jobs& jobs) {
    const auto begin = std::chrono::steady_clock::now();
    Commit(jobs);
    const bool quick = std::chrono::steady_clock::now() - begin < kQuick;
    std::size_t bytes = 0;
    for (Job& job : jobs) {
        job.done(job.error.empty() ? nullptr : &job.error);
        bytes += job.bytes;
    }
    jobs.clear();
    const std::lock_guard lock(mutex_);
    bytes_ -= bytes;
    quick_ = quick;
}

void CWriter::Commit(Jobs& jobs) {
    const std::int64_t before = database_.AllChanges();
    std::string error;
    try {
        database_.Prepared("BEGIN IMMEDIATE").Bind().Run();
        for (Job& job : jobs) {
            RunOne(job, jobs.size() == 1);
        }
        if (database_.InTransaction()) {
            database_.Prepared("COMMIT").Bind().Run();
        }
    } catch (const std::exception& failure) {
        error = failure.what();
        RollBack();
        for (Job& job : jobs) {
            job.error = error;
        }
    }
    // A transaction that wrote nothing says nothing of the disk.
    if (!error.empty() || database_.AllChanges() != before) {
        health_(error);
    }
}

/// Work that fails by itself is undone by itself; one that takes the transaction along fails everything. What is alone
/// in its transaction needs no mark in it to go back to.
void CWriter::RunOne(Job& job, bool alone) {
    if (!alone) {
        database_.Prepared("SAVEPOINT job").Bind().Run();
    }
    try {
        job.work(database_);
    } catch (const std::exception& failure) {
        if (TakesTransaction(failure)) {
            throw;
        }
        job.error = failure.what();
        database_.Prepared(alone ? "ROLLBACK" : "ROLLBACK TO job").Bind().Run();
    }
    if (!alone) {
        database_.Prepared("RELEASE job").Bind().Run();
    }
}

bool CWriter::TakesTransaction(const std::exception& failure) const {
    const auto* const error = dynamic_cast<const CDatabaseError*>(&failure);
    const int kind = error == nullptr ? SQLITE_OK : error->Code() & 0xFF;
    return !database_.InTransaction() || kind == SQLITE_FULL || kind == SQLITE_IOERR || kind == SQLITE_CORRUPT ||
           kind == SQLITE_READONLY;
}

void CWriter::RollBack() {
    if (!database_.InTransaction()) {
        return;
    }
    try {
        database_.Execute("ROLLBACK");
    } catch (const std::exception&) {
        // The transaction is gone all the same: SQLite undoes it when the file is opened again.
    }
}

}  // namespace ZELPC
