// The viewer's page: time to read and render one page at 1 MiB, 2 GiB and
// 5 GiB into a 5 GiB sparse file (the design page of Binary/Text, 160 bytes
// in rows of 10), and Full Text of a 10 MB text file. The files are made in
// $BRINDLEX_BENCH_DIR (default /tmp) and removed at the end.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "engine/viewer/page.h"

namespace {

namespace fs = std::filesystem;

struct Files {
    fs::path dir, sparse, text;

    Files()
    {
        const char* base = std::getenv("BRINDLEX_BENCH_DIR");
        dir = fs::path(base ? base : "/tmp") / ("brindlex-page-bench-" + std::to_string(::getpid()));
        fs::create_directories(dir);
        sparse = dir / "sparse.bin";
        const int fd = ::open(sparse.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0 || ::ftruncate(fd, 5LL << 30) != 0)
            std::abort();
        ::close(fd);
        text = dir / "text.txt";
        std::ofstream out(text, std::ios::binary);
        for (int line = 0; out.tellp() < 10'000'000; ++line)
            out << "line " << line << " of a ten megabyte text file for Full Text\r\n";
    }
    ~Files() { fs::remove_all(dir); }
};

const Files& files()
{
    static const Files made;
    return made;
}

void BM_PageAt(benchmark::State& state)
{
    const std::int64_t lPos = state.range(0) + 1;
    for (auto _ : state) {
        const brindlex::Page page = brindlex::readpage(files().sparse, lPos, 160, 10, brindlex::kModeBinaryText, 0);
        benchmark::DoNotOptimize(page.sText.data());
    }
}

void BM_FullText10MB(benchmark::State& state)
{
    for (auto _ : state) {
        const brindlex::Page page = brindlex::readpage(files().text, 5000, 922, 10, brindlex::kModeFullText, 0);
        benchmark::DoNotOptimize(page.sText.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 10'000'000);
}

BENCHMARK(BM_PageAt)->Arg(1LL << 20)->Arg(2LL << 30)->Arg((5LL << 30) - 160)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FullText10MB)->Unit(benchmark::kMillisecond);

}  // namespace
