#include "store/CWriter.h"

#include <pthread.h>

#include "store/CDatabase.h"
#include "store/CDatabaseError.h"

namespace ZELPC {

CWriter::CWriter(CDatabase& database, Health health)
    : database_(database), health_(std::move(health)), thread_([this] { Loop(); }) {}

CWriter::~CWriter() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void CWriter::Submit(Work work, Done done) {
    {
        const std::lock_guard lock(mutex_);
        if (waiting_.size() < kMaxWaiting) {
            waiting_.push_back({std::move(work), std::move(done), {}});
            wake_.notify_one();
            return;
        }
    }
    const std::string error = "too much waits to be written";
    done(&error);
}

void CWriter::Loop() {
    pthread_setname_np(pthread_self(), "store");
    for (;;) {
        Jobs jobs;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
            if (waiting_.empty()) {
                return;
            }
            jobs.swap(waiting_);
        }
        Commit(jobs);
        for (Job& job : jobs) {
            job.done(job.error.empty() ? nullptr : &job.error);
        }
    }
}

void CWriter::Commit(Jobs& jobs) {
    std::string error;
    try {
        database_.Execute("BEGIN IMMEDIATE");
        for (Job& job : jobs) {
            RunOne(job);
        }
        database_.Execute("COMMIT");
    } catch (const std::exception& failure) {
        error = failure.what();
        RollBack();
        for (Job& job : jobs) {
            job.error = error;
        }
    }
    health_(error);
}

/// Work that fails by itself is undone by itself; one that takes the transaction along fails everything.
void CWriter::RunOne(Job& job) {
    database_.Prepared("SAVEPOINT job").Bind().Run();
    try {
        job.work(database_);
    } catch (const CDatabaseError& failure) {
        const int kind = failure.Code() & 0xFF;
        if (!database_.InTransaction() || kind == SQLITE_FULL || kind == SQLITE_IOERR || kind == SQLITE_CORRUPT ||
            kind == SQLITE_READONLY) {
            throw;
        }
        job.error = failure.what();
        database_.Prepared("ROLLBACK TO job").Bind().Run();
    } catch (const std::exception& failure) {
        job.error = failure.what();
        database_.Prepared("ROLLBACK TO job").Bind().Run();
    }
    database_.Prepared("RELEASE job").Bind().Run();
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
