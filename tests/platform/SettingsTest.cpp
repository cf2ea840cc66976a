#include "base/Text.h"
#include "platform/FileError.h"
#include "platform/FileSettings.h"
#include "support/TemporaryDirectory.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <sys/wait.h>
#include <thread>

namespace velmo { namespace {

using test::TemporaryDirectory;

Bytes everyByte() {
    Bytes bytes;
    for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
    return bytes;
}

TEST(Settings, ValuesComeBackExactlyFromFileAndMemory) {
    const TemporaryDirectory temporary;
    FileSettings file(temporary / "config/settings.json");
    MemorySettings memory;
    const double infinity = std::numeric_limits<double>::infinity();
    const std::vector<SettingsValue> values{
        true,
        std::numeric_limits<std::int64_t>::min(),
        std::numeric_limits<std::int64_t>::max(),
        0.1,
        2.0,
        -0.0,
        5e-324,
        infinity,
        -infinity,
        std::string("naïve \u2028 \"quoted\"\n\0 end", 24),
        std::string(),
        Date{Duration{-1}},
        Date{Duration{1'772'357'400'123}},
        SettingsData{everyByte()},
        SettingsData{},
        std::vector<std::string>{},
        std::vector<std::string>{"b", "a", "b"},
        SettingsDictionary{},
        SettingsDictionary{{"date", "x"}, {"", "y"}},
    };
    for (std::size_t i = 0; i < values.size(); ++i)
        for (Settings* settings : {static_cast<Settings*>(&file), static_cast<Settings*>(&memory)}) {
            settings->set("key", values[i]);
            EXPECT_EQ(settings->value("key"), values[i]) << "value " << i;
            EXPECT_EQ(FileSettings(temporary / "config/settings.json").value("key"), values[i]) << "value " << i;
        }
    file.setReal("key", std::nan(""));
    EXPECT_TRUE(std::isnan(FileSettings(temporary / "config/settings.json").real("key").value_or(0)));
}

TEST(Settings, AnotherTypeCountsAsAbsentAndIllFormedTextIsRepaired) {
    const TemporaryDirectory temporary;
    FileSettings settings(temporary / "settings.json");
    settings.setInteger("n", 1);
    EXPECT_EQ(settings.boolean("n"), std::nullopt);
    EXPECT_EQ(settings.real("n"), std::nullopt);
    EXPECT_EQ(settings.text("n"), std::nullopt);
    settings.setData("d", "text");
    EXPECT_EQ(settings.text("d"), std::nullopt);
    EXPECT_EQ(settings.data("d"), "text");

    settings.setText("bad \xFF key", "bad \xC3");
    EXPECT_EQ(settings.text("bad \xFF key"), "bad \uFFFD");
    settings.setTexts("list", {"\xED\xA0\x80"});
    EXPECT_TRUE(text::isValidUTF8(test::contentsOf(temporary / "settings.json")));
    settings.remove("n");
    settings.remove("never there");
    EXPECT_EQ(settings.keys(), (std::vector<std::string>{"bad \uFFFD key", "d", "list"}));
}

TEST(Settings, EntriesOfAnotherVersionSurvive) {
    const TemporaryDirectory temporary;
    test::writeFile(temporary / "settings.json",
                    R"({"future": {"colour": 1, "x": []}, "huge": 18446744073709551615, "mixed": ["a", 1]})");
    FileSettings settings(temporary / "settings.json");
    for (const char* key : {"future", "huge", "mixed"}) EXPECT_EQ(settings.value(key), std::nullopt) << key;
    settings.setBoolean("own", true);
    const auto written = test::contentsOf(temporary / "settings.json");
    for (const char* part : {"\"colour\": 1", "18446744073709551615", "\"mixed\""})
        EXPECT_NE(written.find(part), std::string::npos) << part;
}

TEST(Settings, ADamagedFileIsSetAsideWhoeverMeetsItFirst) {
    const TemporaryDirectory temporary;
    const auto file = temporary / "settings.json";
    FileSettings settings(file);
    settings.setInteger("n", 1);
    test::writeFile(file, "{\"n\": 2");
    EXPECT_EQ(settings.integer("n"), std::nullopt);
    EXPECT_EQ(test::contentsOf(temporary / "settings.json.damaged-1"), "{\"n\": 2");
    EXPECT_FALSE(std::filesystem::exists(file));

    test::writeFile(file, "[1]");
    settings.setInteger("m", 3);
    EXPECT_EQ(test::contentsOf(temporary / "settings.json.damaged-2"), "[1]");
    EXPECT_EQ(test::contentsOf(temporary / "settings.json.damaged-1"), "{\"n\": 2");
    EXPECT_EQ(settings.integer("m"), 3);
}

TEST(Settings, AChangeFailsWhereTheFileCannotBeRead) {
    const TemporaryDirectory temporary;
    std::filesystem::create_directory(temporary / "settings.json");
    FileSettings settings(temporary / "settings.json");
    EXPECT_EQ(settings.integer("n"), std::nullopt);
    EXPECT_THROW(settings.setInteger("n", 1), FileError);
    EXPECT_TRUE(std::filesystem::is_directory(temporary / "settings.json"));
}

TEST(Settings, ProcessesAndThreadsLoseNoChangeOfEachOther) {
    const TemporaryDirectory temporary;
    const auto file = temporary / "settings.json";
    FileSettings shared(file);
    constexpr int changes = 15;
    const auto fill = [&](Settings& settings, const std::string& name) {
        for (int i = 0; i < changes; ++i) settings.setInteger(name + std::to_string(i), i);
    };
    const pid_t child = fork();
    if (child == 0) {
        FileSettings own(file);
        fill(own, "process");
        _exit(0);
    }
    {
        std::jthread first([&] { fill(shared, "thread"); });
        std::jthread second([&] {
            FileSettings own(file);
            fill(own, "own");
        });
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(shared.keys().size(), 3U * changes);
    // Same size, quick succession: the reader still sees each change of the other.
    FileSettings other(file);
    for (int i = 0; i < 10; ++i) {
        other.setInteger("turn", i);
        ASSERT_EQ(shared.integer("turn"), i);
    }
}

}}
