/* The floors of a find in one file, doing nothing with the bytes:
 *   readloop FILE        read() the whole file in 1 MiB pieces;
 *   readloop -t N FILE   N threads pread() it in 512 KiB pieces, each taking
 *                        the next piece not yet taken, into a buffer of its own.
 * Every buffer starts on a page boundary. race.sh builds it with the
 * system's cc. */
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { kPiece = 512 << 10 };

static int fd;
static long long size;
static long long next_piece; /* taken with __atomic_fetch_add */
static int failed;

static void* reader(void* unused)
{
    (void)unused;
    void* buf;
    if (posix_memalign(&buf, 4096, kPiece) != 0) {
        failed = 1;
        return NULL;
    }
    for (;;) {
        long long at = __atomic_fetch_add(&next_piece, 1, __ATOMIC_RELAXED) * (long long)kPiece;
        if (at >= size)
            break;
        if (pread(fd, buf, kPiece, at) <= 0) {
            failed = 1;
            break;
        }
    }
    free(buf);
    return NULL;
}

int main(int argc, char** argv)
{
    static char buf[1 << 20] __attribute__((aligned(4096)));
    int threads = 0;
    if (argc == 4 && strcmp(argv[1], "-t") == 0) {
        threads = atoi(argv[2]);
        argv += 2;
        argc -= 2;
    }
    if (argc != 2 || threads < 0 || threads > 64) {
        fputs("usage: readloop [-t THREADS] FILE\n", stderr);
        return 2;
    }
    fd = open(argv[1], O_RDONLY);
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0) {
        perror(argv[1]);
        return 2;
    }
    if (threads > 0) {
        size = st.st_size;
        pthread_t t[64];
        for (int i = 0; i < threads; ++i)
            pthread_create(&t[i], NULL, reader, NULL);
        for (int i = 0; i < threads; ++i)
            pthread_join(t[i], NULL);
        close(fd);
        return failed ? 2 : size == 0;
    }
    long long total = 0;
    ssize_t r;
    while ((r = read(fd, buf, sizeof buf)) > 0)
        total += r;
    close(fd);
    return r < 0 ? 2 : total == 0;
}
