#include "zeb_task_table.h"

namespace zeb {

TaskTable& globalTaskTable() {
    static TaskTable* table = new TaskTable;  // lives until the process ends
    return *table;
}

void cancelTask(TaskTable& table, int64_t taskId) {
    std::lock_guard<std::mutex> hold(table.lock);
    // An id no command has entered is ignored: a mark left for it would end,
    // unanswered, whatever command the parent sends under that id later.
    auto found = table.tasks.find(taskId);
    if (found == table.tasks.end() || !found->second) return;
    DhTask* task = found->second;
    task->state = kTaskCancelled;
    if (task->cancelAction) {
        auto action = task->cancelAction;
        task->cancelAction = nullptr;
        action(task->cancelData);
    }
}

bool isCancelled(TaskTable& table, DhTask* task) {
    std::lock_guard<std::mutex> hold(table.lock);
    if (!task || task->state != kTaskCancelled) return false;
    if (task->cancelAction) {
        auto action = task->cancelAction;
        task->cancelAction = nullptr;
        action(task->cancelData);
    }
    return true;
}

TaskEntry enterTask(TaskTable& table, int64_t taskId, uint32_t commandType, const std::string& udid, DhTask** task) {
    std::lock_guard<std::mutex> hold(table.lock);
    DhTask*& entry = table.tasks[taskId];
    if (entry) {
        *task = entry;
        return entry->state == kTaskCancelled ? TaskEntry::Cancelled : TaskEntry::Existing;
    }
    entry = new DhTask;
    entry->taskId = taskId;
    entry->commandType = commandType;
    entry->udid = udid;
    *task = entry;
    return TaskEntry::Created;
}

}  // namespace zeb
