// LmdbTable.h: the same records in LMDB, the memory-mapped B+ tree that many would use for this: one transaction a
// write, a fresh one a lookup, no synchronisation with the disk.
#pragma once

#include <lmdb.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "Records.h"

namespace bench {

// An environment must not cross a fork: a process that reads opens its own.
class LmdbTable {
 public:
    explicit LmdbTable(const std::string& path) {
        std::filesystem::create_directories(path);
        check(mdb_env_create(&env_));
        check(mdb_env_set_mapsize(env_, std::size_t(2) << 30));
        check(mdb_env_open(env_, path.c_str(), MDB_NOSYNC | MDB_WRITEMAP, 0600));
        Transaction transaction(env_, 0);
        check(mdb_dbi_open(transaction.handle, nullptr, 0, &table_));
        transaction.commit();
    }
    ~LmdbTable() { mdb_env_close(env_); }
    LmdbTable(const LmdbTable&) = delete;
    LmdbTable& operator=(const LmdbTable&) = delete;

    void write(const Entry& entry, std::uint32_t generation) {
        Value value = valueOf(entry, generation);
        MDB_val key = keyOf(entry), data{sizeof value, &value};
        Transaction transaction(env_, 0);
        check(mdb_put(transaction.handle, table_, &key, &data, 0));
        transaction.commit();
    }
    void remove(const Entry& entry) {
        MDB_val key = keyOf(entry);
        Transaction transaction(env_, 0);
        check(mdb_del(transaction.handle, table_, &key, nullptr));
        transaction.commit();
    }
    bool lookup(const Entry& entry, Value& out) const {
        MDB_val key = keyOf(entry), data;
        Transaction transaction(env_, MDB_RDONLY);
        if (mdb_get(transaction.handle, table_, &key, &data) != 0) return false;
        std::memcpy(static_cast<void*>(&out), data.mv_data, sizeof out);
        return true;
    }
    template <class F>
    void forEach(F&& visit) const {
        Transaction transaction(env_, MDB_RDONLY);
        MDB_cursor* cursor;
        check(mdb_cursor_open(transaction.handle, table_, &cursor));
        MDB_val key, data;
        Value value;
        while (mdb_cursor_get(cursor, &key, &data, MDB_NEXT) == 0) {
            std::memcpy(static_cast<void*>(&value), data.mv_data, sizeof value);
            visit(value);
        }
        mdb_cursor_close(cursor);
    }
    std::uint64_t bytes() const {
        MDB_envinfo info;
        MDB_stat stat;
        check(mdb_env_info(env_, &info));
        check(mdb_env_stat(env_, &stat));
        return (info.me_last_pgno + 1) * stat.ms_psize;
    }

 private:
    struct Transaction {
        MDB_txn* handle = nullptr;
        Transaction(MDB_env* env, unsigned flags) { check(mdb_txn_begin(env, nullptr, flags, &handle)); }
        ~Transaction() {
            if (handle) mdb_txn_abort(handle);
        }
        void commit() { check(mdb_txn_commit(std::exchange(handle, nullptr))); }
    };
    static MDB_val keyOf(const Entry& entry) { return {sizeof entry.key, const_cast<Key*>(&entry.key)}; }
    static void check(int error) {
        if (error == 0) return;
        std::fprintf(stderr, "bench-memtab: LMDB: %s\n", mdb_strerror(error));
        std::exit(2);
    }
    MDB_env* env_ = nullptr;
    MDB_dbi table_ = 0;
};

}  // namespace bench
