#include "qws_process.h"

#include "def.h"
#include "do_cmd.h"

#include <QFile>
#include <QProcess>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

bool QwsProcess::qwsServerIsExit(int timeoutSeconds)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, kel::kQwsSocketPath, 107);
    timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    for (;;) {
        if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
            close(fd);
            return true;
        }
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        if (now.tv_sec - start.tv_sec >= timeoutSeconds) {
            puts("connect more than 20 seconds");
            close(fd);
            return false;
        }
        usleep(200000);
    }
}

bool QwsProcess::startQwsServer(const QString& serverProgram)
{
    FILE* in = fopen(QFile::encodeName(serverProgram).constData(), "rb");
    if (!in)
        return false;
    FILE* out = fopen(kel::kQwsServerTmpPath, "wb");
    if (!out) {
        fclose(in);
        return false;
    }
    char block[4096];
    size_t n;
    while ((n = fread(block, 1, sizeof block, in)) > 0) {
        if (fwrite(block, 1, n, out) != n) {
            fputs(strerror(errno), stdout);
            fclose(in);
            fclose(out);
            return false;
        }
    }
    fclose(in);
    fclose(out);
    const int status = DoCmd::run(std::string("chmod +x ") + kel::kQwsServerTmpPath);
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        puts("cmd exec failed...");
        return false;
    }
    return QProcess::startDetached(QString::fromUtf8(kel::kQwsServerTmpPath), {"-qws"});
}
