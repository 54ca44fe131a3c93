// DhTask: the control block of one long command, shared by the command and
// the Control module. Task tables grow only; an entry outlives its command.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

class ZEBDeviceConnection;

inline constexpr uint16_t kTaskCancelled = 5;

struct DhTask {
    std::string udid;
    std::shared_ptr<ZEBDeviceConnection> connection;
    int64_t taskId = 0;
    uint32_t commandType = 0;
    void* cancelData = nullptr;
    // Called once on cancellation, under the table's lock: it must neither
    // block on the command nor take that lock.
    void (*cancelAction)(void*) = nullptr;
    uint16_t state = 0;
    // What the command keeps for later packets of the same task.
    std::shared_ptr<void> owned;
};

struct TaskTable {
    std::mutex lock;
    std::map<int64_t, DhTask*> tasks;
};

namespace zeb {

// The table of commands that have no device.
TaskTable& globalTaskTable();

// Marks the task cancelled and runs its cancel action once. An unknown id is
// ignored.
void cancelTask(TaskTable& table, int64_t taskId);
// The command's safe point: true once the task stands cancelled (running the
// cancel action if one is still set).
bool isCancelled(TaskTable& table, DhTask* task);

enum class TaskEntry { Created, Existing, Cancelled };
// Finds or makes the entry of a command's first packet.
TaskEntry enterTask(TaskTable& table, int64_t taskId, uint32_t commandType, const std::string& udid, DhTask** task);

}  // namespace zeb
