// profiles.cpp - open, ten gets and close of a profile, beside inih and GLib.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <ini.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <memory>

#include "micro.hpp"
#include "profile.h"

namespace {

constexpr int kGets = 10;
using Name = std::array<char, 16>;

// The sections asked for, spread over the file; in each the key "SIZE".
std::array<Name, kGets> wanted(std::int64_t sections) {
    std::array<Name, kGets> names{};
    for (int i = 0; i < kGets; ++i) {
        const int number = static_cast<int>(sections * i / kGets);
        std::snprintf(names[i].data(), names[i].size(), "SECTION%d", number);
    }
    return names;
}

std::string write_profile(std::int64_t sections) {
    const std::string path = bench::memory_path("bench.ini");
    std::FILE* const file = std::fopen(path.c_str(), "w");
    for (int i = 0; i < sections; ++i)
        std::fprintf(file, "[SECTION%d]\nNAME=job %d\nSIZE=%d\nLEVEL=1\n", i, i, i);
    std::fclose(file);
    return path;
}

void profile_product(benchmark::State& state) {
    const std::string path = write_profile(state.range(0));
    const auto names = wanted(state.range(0));
    for (auto _ : state) {
        MailProfile* const profile = Com_OpenPrivateProfile(path.c_str(), 0);
        char value[64];
        for (const Name& name : names)
            Com_GetPrivateProfileString(profile, name.data(), "SIZE", "", value, sizeof value);
        benchmark::DoNotOptimize(value);
        Com_ClosePrivateProfile(profile, path.c_str());
    }
}

struct Wanted {
    std::array<Name, kGets> names;
    std::array<std::array<char, 64>, kGets> values{};
};

// inih has no store: its handler sees every pair and picks what is wanted.
int pick(void* user, const char* section, const char* name, const char* value) {
    auto* const all = static_cast<Wanted*>(user);
    for (std::size_t i = 0; i < kGets; ++i) {
        if (std::strcmp(section, all->names[i].data()) == 0 && std::strcmp(name, "SIZE") == 0)
            std::snprintf(all->values[i].data(), all->values[i].size(), "%s", value);
    }
    return 1;
}

void profile_inih(benchmark::State& state) {
    const std::string path = write_profile(state.range(0));
    Wanted all{wanted(state.range(0))};
    for (auto _ : state) {
        ini_parse(path.c_str(), pick, &all);
        benchmark::DoNotOptimize(all);
    }
}

void profile_glib(benchmark::State& state) {
    const std::string path = write_profile(state.range(0));
    const auto names = wanted(state.range(0));
    for (auto _ : state) {
        GKeyFile* const file = g_key_file_new();
        g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr);
        for (const Name& name : names)
            g_free(g_key_file_get_string(file, name.data(), "SIZE", nullptr));
        g_key_file_free(file);
    }
}

BENCHMARK(profile_product)->RangeMultiplier(10)->Range(1, 1000);
BENCHMARK(profile_inih)->Arg(100);
BENCHMARK(profile_glib)->Arg(100);

}  // namespace
