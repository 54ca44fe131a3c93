#include "zeb_command_table.h"

#include "zeb_module.h"

#include <atomic>
#include <initializer_list>
#include <map>
#include <mutex>

namespace zeb {

namespace {

using Table = std::map<uint32_t, ZEBModule*>;
// Published once, complete: a command that overtakes the build finds no
// table and is dropped like an unknown number.
std::atomic<const Table*> commandTable{nullptr};

[[maybe_unused]] void enter(Table& table, ZEBModule* module, std::initializer_list<uint32_t> numbers) {
    for (uint32_t number : numbers) table[number] = module;
}

}  // namespace

void buildCommandTable() {
    static std::once_flag built;
    std::call_once(built, [] {
        auto* table = new Table;
        commandTable.store(table);
    });
}

ZEBModule* findModule(uint32_t commandType) {
    const Table* table = commandTable.load();
    if (!table) return nullptr;
    auto found = table->find(commandType);
    return found == table->end() ? nullptr : found->second;
}

}  // namespace zeb
