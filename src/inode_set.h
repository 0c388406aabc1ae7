// A set of files by identity, for keeping the ones that a run has created: a million of them must
// not cost much more than their numbers. One open-addressing table of inode numbers per device.
// No lock; the owner guards it.

#pragma once

#include "fs_ops.h"

#include <cstdint>
#include <utility>
#include <vector>

class InodeSet {
  public:
    void clear() { m_tables.clear(); }

    void insert(fsops::FileId id) {
        if (id.inode == 0)
            return;  // marks a free place; no file system gives it to a file
        Table& table = table_of(id.device);
        if ((table.used + 1) * 4 > table.places.size() * 3)
            table.grow();
        table.put(id.inode);
    }

    [[nodiscard]] bool contains(fsops::FileId id) const {
        if (id.inode == 0)
            return false;
        for (const auto& [device, table] : m_tables) {
            if (device == id.device)
                return table.has(id.inode);
        }
        return false;
    }

  private:
    struct Table {
        std::vector<uint64_t> places;  // a power of two of them; 0 is free
        size_t used = 0;

        [[nodiscard]] size_t find(uint64_t inode) const {
            const size_t mask = places.size() - 1;
            size_t at = static_cast<size_t>(inode * 0x9E3779B97F4A7C15ULL >> 20) & mask;
            while (places[at] != 0 && places[at] != inode)
                at = (at + 1) & mask;
            return at;
        }
        [[nodiscard]] bool has(uint64_t inode) const {
            return !places.empty() && places[find(inode)] == inode;
        }
        void put(uint64_t inode) {
            uint64_t& place = places[find(inode)];
            if (place == 0)
                ++used;
            place = inode;
        }
        void grow() {
            std::vector<uint64_t> old(places.empty() ? 64 : places.size() * 2);
            old.swap(places);
            used = 0;
            for (const uint64_t inode : old) {
                if (inode != 0)
                    put(inode);
            }
        }
    };

    Table& table_of(uint64_t device) {
        for (auto& [known, table] : m_tables) {
            if (known == device)
                return table;
        }
        return m_tables.emplace_back(device, Table()).second;
    }

    std::vector<std::pair<uint64_t, Table>> m_tables;  // a handful of devices at most
};
