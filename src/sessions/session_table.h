// The open sessions of the process, keyed by handle in ascending order.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "sessions/session_record.h"

constexpr std::uint32_t kFirstSessionHandle = 0x60000001;

class SessionTable {
public:
    using Records = std::map<std::uint32_t, std::shared_ptr<SessionRecord>>;

    void clear() { records_.clear(); }
    // Empties the table and hands its records to the caller.
    Records takeAll() { return std::exchange(records_, Records{}); }
    std::size_t size() const { return records_.size(); }
    const Records& records() const { return records_; }

    // Records stay alive while a call still holds them, even after their session is closed.
    std::shared_ptr<SessionRecord> find(std::uint32_t handle) const {
        auto found = records_.find(handle);
        return found == records_.end() ? nullptr : found->second;
    }
    // The first handle is kFirstSessionHandle; later ones follow the largest open handle, so a
    // freed handle comes back only when it was the largest.
    std::uint32_t insert(std::shared_ptr<SessionRecord> record) {
        const std::uint32_t handle =
            records_.empty() ? kFirstSessionHandle : records_.rbegin()->first + 1;
        records_.emplace(handle, std::move(record));
        return handle;
    }
    // Removes the handle only while it still names this record: a caller that looked the
    // record up earlier must not close a newer session that has been given the same handle.
    bool erase(std::uint32_t handle, const SessionRecord& record) {
        auto found = records_.find(handle);
        if (found == records_.end() || found->second.get() != &record) {
            return false;
        }
        records_.erase(found);
        return true;
    }

    // Sessions of every slot whose state is the given one.
    std::size_t countInState(CK_STATE state) const {
        std::size_t count = 0;
        for (const auto& entry : records_) {
            count += entry.second->state.load() == state ? 1 : 0;
        }
        return count;
    }

    // Calls visit(SessionRecord&) for every session opened on the device, in handle order.
    template <typename Visit>
    void forEachOnDevice(const std::string& deviceId, Visit&& visit) const {
        for (const auto& entry : records_) {
            if (entry.second->token.serialNumber == deviceId) {
                visit(*entry.second);
            }
        }
    }

private:
    Records records_;
};
