// The hash table.

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "job.h"
#include "kelcore.h"

#ifdef HAVE_GLIB
#include <glib.h>
#endif

static constexpr int kKeys = 1000;

static std::vector<std::string> make_keys(const char *prefix) {
  std::vector<std::string> keys;
  for (int i = 0; i < kKeys; ++i)
    keys.push_back(prefix + std::to_string(i));
  return keys;
}
static const std::vector<std::string> keys = make_keys("stream/");
static const std::vector<std::string> others = make_keys("nothing/");

static KEL_HASHMAP *kelcore_table() {
  KEL_HASHMAP *table = KEL_Hashmap_Create(4096, 0);
  for (int i = 0; i < kKeys; ++i)
    KEL_Hashmap_Hash(table, keys[static_cast<size_t>(i)].c_str(), static_cast<uint64_t>(i));
  return table;
}

static void look_up(benchmark::State &state, const std::vector<std::string> &wanted) {
  KEL_HASHMAP *table = kelcore_table();
  size_t i = 0;
  uint64_t value = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(
        KEL_Hashmap_Get(table, wanted[i = (i + 1) % kKeys].c_str(), &value));
  KEL_Hashmap_DestroyFull(table, nullptr);
}
JOB(table_hit, kelcore) {
  look_up(state, keys);
}
JOB(table_miss, kelcore) {
  look_up(state, others);
}
JOB(table_build_1000, kelcore) {
  for (auto _ : state)
    KEL_Hashmap_DestroyFull(kelcore_table(), nullptr);
}

static std::unordered_map<std::string, uint64_t> std_table() {
  std::unordered_map<std::string, uint64_t> table;
  table.reserve(kKeys);
  for (int i = 0; i < kKeys; ++i)
    table.emplace(keys[static_cast<size_t>(i)].c_str(), i);
  return table;
}

static void look_up_std(benchmark::State &state, const std::vector<std::string> &wanted) {
  const auto table = std_table();
  size_t i = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(table.find(wanted[i = (i + 1) % kKeys].c_str()) == table.end());
}
JOB(table_hit, std) {
  look_up_std(state, keys);
}
JOB(table_miss, std) {
  look_up_std(state, others);
}
JOB(table_build_1000, std) {
  for (auto _ : state)
    benchmark::DoNotOptimize(std_table().size());
}

#ifdef HAVE_GLIB
static GHashTable *glib_table() {
  GHashTable *table = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
  for (int i = 0; i < kKeys; ++i)
    g_hash_table_insert(table, g_strdup(keys[static_cast<size_t>(i)].c_str()),
                        GINT_TO_POINTER(i + 1));
  return table;
}

static void look_up_glib(benchmark::State &state, const std::vector<std::string> &wanted) {
  GHashTable *table = glib_table();
  size_t i = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(g_hash_table_lookup(table, wanted[i = (i + 1) % kKeys].c_str()));
  g_hash_table_unref(table);
}
JOB(table_hit, glib) {
  look_up_glib(state, keys);
}
JOB(table_miss, glib) {
  look_up_glib(state, others);
}
JOB(table_build_1000, glib) {
  for (auto _ : state)
    g_hash_table_unref(glib_table());
}
#endif
