#include "records/LabelTable.h"

#include "records/StoreConnection.h"

namespace velmo {

namespace {

LabelRecord recordOf(const sqlite::Query& row) {
    LabelRecord r;
    row.read(r.key, r.name, r.colorRaw, r.isDefault, r.sortOrder);
    return r;
}

}

LabelColor LabelRecord::color() const {
    constexpr auto last = static_cast<std::int64_t>(LabelColor::graphite);
    return colorRaw >= 0 && colorRaw <= last ? static_cast<LabelColor>(colorRaw) : LabelColor::graphite;
}

std::vector<LabelRecord> LabelTable::all() {
    std::vector<LabelRecord> records;
    auto row =
        connection_.query("SELECT key, name, colorRaw, isDefault, sortOrder FROM labels ORDER BY sortOrder, key");
    while (row.step()) records.push_back(recordOf(row));
    return records;
}

std::optional<LabelRecord> LabelTable::find(std::string_view key) {
    auto row = connection_.query("SELECT key, name, colorRaw, isDefault, sortOrder FROM labels WHERE key = ?");
    row.bind(key);
    if (!row.step()) return std::nullopt;
    return recordOf(row);
}

bool LabelTable::store(const LabelRecord& r) {
    return connection_.write([&] {
        if (find(r.key) == r) return false;
        connection_.query("REPLACE INTO labels (key, name, colorRaw, isDefault, sortOrder) VALUES (?, ?, ?, ?, ?)")
            .run(r.key, r.name, r.colorRaw, r.isDefault, r.sortOrder);
        connection_.noteLabels();
        return true;
    });
}

void LabelTable::remove(std::string_view key) {
    connection_.write([&] {
        connection_.query("DELETE FROM labels WHERE key = ?").run(key);
        connection_.noteLabels();
    });
}

}
