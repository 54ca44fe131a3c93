#include "zeb_command_table.h"

#include "zeb_module.h"
#include "zeb_module_app.h"
#include "zeb_module_basicinfo.h"
#include "zeb_module_bookmark.h"
#include "zeb_module_calendar.h"
#include "zeb_module_contact.h"
#include "zeb_module_erase.h"
#include "zeb_module_control.h"
#include "zeb_module_file.h"
#include "zeb_module_itunes.h"
#include "zeb_module_note.h"

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

void enter(Table& table, ZEBModule* module, std::initializer_list<uint32_t> numbers) {
    for (uint32_t number : numbers) table[number] = module;
}

}  // namespace

void buildCommandTable() {
    static std::once_flag built;
    std::call_once(built, [] {
        // Built in this order; each module object serves all its numbers.
        auto* table = new Table;
        enter(*table, new ZEBModuleBasicInfo, {300, 303, 15});
        enter(*table, new ZEBModuleApp, {501, 502, 504, 505, 506});
        enter(*table, new ZEBModuleFile, {701, 702, 703, 704});
        enter(*table, new ZEBModuleContact, {100, 102, 103, 104, 105, 106});
        enter(*table, new ZEBModuleCalendar, {1500, 1501, 1502});
        enter(*table, new ZEBModuleNote, {1200, 1201});
        enter(*table, new ZEBModuleBookmark, {1400, 1401, 1402});
        enter(*table, new ZEBModuleiTunes, {1600, 1601, 1602, 1603, 1604, 1605, 1606, 1607});
        enter(*table, new ZEBModuleErase, {1700, 1701});
        enter(*table, new ZEBModuleControl, {600});
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
