// The scanner's search over a buffer in memory: bytes per second for the
// kinds of pattern that the runs meet.
#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "engine/batch/scanner.h"

namespace {

const std::string& haystack()
{
    static const std::string data = [] {
        std::string s(64 << 20, '\0');
        std::mt19937_64 rng(1);
        for (char& c : s)
            c = static_cast<char>(rng());
        return s;
    }();
    return data;
}

// Counts every occurrence, as a find that restarts behind each hit does.
void search(benchmark::State& state, const std::string& pattern, bool bMatchCase)
{
    const std::string& data = haystack();
    const brindlex::PatternSearch search(pattern, bMatchCase);
    const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
    for (auto _ : state) {
        std::size_t hits = 0;
        for (std::size_t at = search.find(bytes, data.size(), 0); at != brindlex::PatternSearch::npos;
             at = search.find(bytes, data.size(), at + 1))
            ++hits;
        benchmark::DoNotOptimize(hits);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(data.size()));
}

// All occurrences of a window of 512 KiB, as a reader thread takes them
// from each read it makes: the bytes are in the core's cache.
void findall(benchmark::State& state, const std::string& pattern, bool bMatchCase)
{
    constexpr std::size_t kWindow = 512 << 10;
    const auto* bytes = reinterpret_cast<const unsigned char*>(haystack().data());
    const brindlex::PatternSearch search(pattern, bMatchCase);
    std::uint32_t found[512];
    for (auto _ : state) {
        std::size_t hits = 0;
        for (std::size_t from = 0; from < kWindow;)
            hits += search.findall(bytes, kWindow, from, found, std::size(found));
        benchmark::DoNotOptimize(hits);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(kWindow));
}

void BM_EightLetters(benchmark::State& state) { search(state, "QZXKPWVB", true); }
void BM_FindAllEightLetters(benchmark::State& state) { findall(state, "QZXKPWVB", true); }
void BM_FindAllEightLettersFolded(benchmark::State& state) { findall(state, "QZXKPWVB", false); }
void BM_FindAllCR(benchmark::State& state) { findall(state, "\r", true); }
void BM_EightLettersFolded(benchmark::State& state) { search(state, "QZXKPWVB", false); }
void BM_OneByte(benchmark::State& state) { search(state, "\r", true); }
void BM_NulPair(benchmark::State& state) { search(state, std::string("\0\0", 2), true); }
void BM_Long200(benchmark::State& state) { search(state, std::string(200, 'A'), false); }

BENCHMARK(BM_EightLetters);
BENCHMARK(BM_FindAllEightLetters);
BENCHMARK(BM_FindAllEightLettersFolded);
BENCHMARK(BM_FindAllCR);
BENCHMARK(BM_EightLettersFolded);
BENCHMARK(BM_OneByte);
BENCHMARK(BM_NulPair);
BENCHMARK(BM_Long200);

}  // namespace
