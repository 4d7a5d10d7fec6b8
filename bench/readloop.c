/* The floor of a find in one file: read() the whole file in 1 MiB pieces
 * and do nothing with the bytes. race.sh builds it with the system's cc. */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

int main(int argc, char** argv)
{
    static char buf[1 << 20];
    if (argc != 2) {
        fputs("usage: readloop FILE\n", stderr);
        return 2;
    }
    int fd = open(argv[1], O_RDONLY);
    if (fd < 0) {
        perror(argv[1]);
        return 2;
    }
    long long total = 0;
    ssize_t r;
    while ((r = read(fd, buf, sizeof buf)) > 0)
        total += r;
    close(fd);
    return r < 0 ? 2 : total == 0;
}
