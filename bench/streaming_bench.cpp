// Streaming throughput: the real DLNA stack's HTTP streaming server (the one
// renderers fetch photos and videos from) against nginx serving the same
// file on the same machine, both on loopback, both fetched by the same client
// (curl, body to /dev/null). A large file (200 MB by default) under the same
// request path on each; rounds take turns, and the one that goes first
// alternates. Prints MB/s (median over the rounds) for each, the ratio
// streaming server / nginx and the server's CPU seconds per 100 MB.
//
// nginx runs with one worker and a configuration written into the temporary
// folder (sendfile on, as Debian configures it; --nginx-sendfile off to
// compare like with like: the streaming server reads and writes).
//
// Two clients, each in turn against both servers: curl, and a client of
// this program that reads 1 MiB at a time (curl's small reads can make the
// client, not the server, the limit).
//
//   camwifi_streaming_bench [--size-mb N] [--rounds N] [--nginx-sendfile on|off]
//                           [--client curl|raw|both]
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "streaming_server.h"

namespace {

// Ctrl-C or a TERM ends the run after the fetch under way, so nginx is
// ended and the 200 MB file removed all the same.
volatile sig_atomic_t gInterrupted = 0;
void onSignal(int) { gInterrupted = 1; }

bool haveCommand(const std::string& name) {
    return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

// A port nobody listens on now (the kernel's choice).
int freePort() {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    int port = -1;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    close(fd);
    return port;
}

bool accepts(int port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bool ok = connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    close(fd);
    return ok;
}

// CPU seconds (user + system) of a process so far, from /proc.
double cpuOfProcess(int pid) {
    std::ifstream f("/proc/" + std::to_string(pid) + "/stat");
    std::string s((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    size_t p = s.rfind(')');
    if (p == std::string::npos) return 0;
    // Fields after the command: state is field 3; utime and stime are 14 and 15.
    const char* c = s.c_str() + p + 2;
    unsigned long utime = 0, stime = 0;
    int field = 3;
    while (*c && field < 14) {
        if (*c++ == ' ') ++field;
    }
    if (sscanf(c, "%lu %lu", &utime, &stime) != 2) return 0;
    return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double cpuOfSelf() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
           static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

struct Fetch {
    bool ok = false;
    double seconds = 0;
    uint64_t bytes = 0;
};

// One GET with curl, the body thrown away; curl's own timing (connect to
// last byte).
Fetch curlFetch(const std::string& url) {
    Fetch f;
    std::string cmd = "curl -s -o /dev/null -w '%{http_code} %{size_download} %{time_total}' '" + url + "'";
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr) return f;
    char buf[256] = {0};
    size_t n = fread(buf, 1, sizeof buf - 1, p);
    buf[n] = 0;
    int rc = pclose(p);
    int code = 0;
    unsigned long long bytes = 0;
    double t = 0;
    if (rc == 0 && sscanf(buf, "%d %llu %lf", &code, &bytes, &t) == 3 && code == 200 && t > 0) {
        f.ok = true;
        f.seconds = t;
        f.bytes = bytes;
    }
    return f;
}

// One GET by a client of our own in a child process (so its CPU is not the
// server's): 1 MiB reads, the body counted and dropped. Timed from before
// connect to the last byte, as curl's time_total is. The buffer is made
// before the fork: the child of a threaded process does not allocate.
Fetch rawFetch(int port, const std::string& path) {
    Fetch f;
    std::vector<char> buf(1 << 20);
    const std::string req = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
    int fds[2];
    if (pipe(fds) != 0) return f;
    pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        Fetch r;
        timespec t0, t1;
        clock_gettime(CLOCK_MONOTONIC, &t0);
        int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(static_cast<uint16_t>(port));
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (s >= 0 && connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
            send(s, req.data(), req.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(req.size())) {
            uint64_t total = 0, headEnd = 0;
            bool ok200 = false;
            for (;;) {
                ssize_t n = recv(s, buf.data() + (headEnd ? 0 : total), headEnd ? buf.size() : buf.size() - total, 0);
                if (n <= 0) break;
                if (headEnd == 0) {
                    // The head fits in the first reads (the buffer keeps them).
                    const uint64_t upTo = total + static_cast<uint64_t>(n);
                    for (uint64_t i = 3; i < upTo; ++i) {
                        if (memcmp(buf.data() + i - 3, "\r\n\r\n", 4) == 0) {
                            headEnd = i + 1;
                            break;
                        }
                    }
                    ok200 = upTo >= 12 && memcmp(buf.data() + 9, "200", 3) == 0;
                    if (headEnd == 0 && upTo >= buf.size()) break;
                }
                total += static_cast<uint64_t>(n);
            }
            clock_gettime(CLOCK_MONOTONIC, &t1);
            r.ok = ok200 && headEnd > 0;
            r.bytes = total - headEnd;
            r.seconds = static_cast<double>(t1.tv_sec - t0.tv_sec) + static_cast<double>(t1.tv_nsec - t0.tv_nsec) / 1e9;
        }
        (void)!write(fds[1], &r, sizeof r);
        _exit(0);
    }
    close(fds[1]);
    if (child > 0) {
        Fetch r;
        if (read(fds[0], &r, sizeof r) == static_cast<ssize_t>(sizeof r)) f = r;
        waitpid(child, nullptr, 0);
    }
    close(fds[0]);
    return f;
}

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    size_t m = v.size() / 2;
    return v.size() % 2 ? v[m] : (v[m - 1] + v[m]) / 2;
}

void usage() {
    fprintf(stderr,
            "usage: camwifi_streaming_bench [--size-mb N] [--rounds N] [--nginx-sendfile on|off]\n"
            "                               [--client curl|raw|both]\n"
            "  --size-mb N            size of the file served (default 200)\n"
            "  --rounds N             fetches from each server (default 5)\n"
            "  --nginx-sendfile X     nginx's sendfile setting (default on)\n"
            "  --client X             curl, raw (a client of this program) or both (default)\n");
}

}  // namespace

int main(int argc, char** argv) {
    int sizeMb = 200, rounds = 5;
    std::string sendfile = "on", client = "both";
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--size-mb" && i + 1 < argc) sizeMb = atoi(argv[++i]);
        else if (a == "--rounds" && i + 1 < argc) rounds = atoi(argv[++i]);
        else if (a == "--nginx-sendfile" && i + 1 < argc) sendfile = argv[++i];
        else if (a == "--client" && i + 1 < argc) client = argv[++i];
        else {
            usage();
            return a == "--help" || a == "-h" ? 0 : 2;
        }
    }
    if (sizeMb < 1 || sizeMb > 4096 || rounds < 1 || rounds > 100 || (sendfile != "on" && sendfile != "off") ||
        (client != "curl" && client != "raw" && client != "both")) {
        usage();
        return 2;
    }
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    for (const char* tool : {"nginx", "curl"}) {
        if (!haveCommand(tool) && !haveCommand(std::string("/usr/sbin/") + tool)) {
            fprintf(stderr, "streaming bench: %s is missing (scripts/setup.sh --bench installs it)\n", tool);
            return 1;
        }
    }
    const std::string nginxBin = haveCommand("nginx") ? "nginx" : "/usr/sbin/nginx";

    char tmpl[] = "/tmp/camwifi-stream-bench-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) {
        perror("streaming bench: mkdtemp");
        return 1;
    }
    const std::string dir = tmpl;
    struct Cleanup {
        std::string dir;
        ~Cleanup() { (void)!std::system(("rm -rf '" + dir + "'").c_str()); }
    } cleanup{dir};
    // nginx's worker may run as another user: the folder must be readable.
    chmod(dir.c_str(), 0755);
    const std::string media = dir + "/media";
    mkdir(media.c_str(), 0755);
    mkdir((dir + "/tmp").c_str(), 0755);

    // The file: pseudo-random bytes (nothing on the way compresses or skips them).
    const std::string file = media + "/SAM_0001.MP4";
    {
        FILE* out = fopen(file.c_str(), "wb");
        if (out == nullptr) {
            perror("streaming bench: the test file");
            return 1;
        }
        std::vector<uint64_t> block(1 << 17);  // 1 MiB
        uint64_t x = 0x9e3779b97f4a7c15ull;
        bool ok = true;
        for (int mb = 0; mb < sizeMb && ok; ++mb) {
            for (uint64_t& v : block) {
                x ^= x << 13;
                x ^= x >> 7;
                x ^= x << 17;
                v = x;
            }
            ok = fwrite(block.data(), sizeof(uint64_t), block.size(), out) == block.size();
        }
        if (fclose(out) != 0 || !ok) {
            fprintf(stderr, "streaming bench: could not write %d MiB into %s\n", sizeMb, dir.c_str());
            return 1;
        }
        chmod(file.c_str(), 0644);
    }
    const uint64_t fileSize = static_cast<uint64_t>(sizeMb) << 20;

    // The streaming server, as the stack starts it (all addresses, one port).
    camwifi::upnp::HttpStreamingServer server;
    int ourPort = -1;
    for (int tries = 0; tries < 20 && ourPort < 0; ++tries) {
        int p = freePort();
        if (p > 0 && server.start(p, {media}) == 0) ourPort = p;
    }
    if (ourPort < 0) {
        fprintf(stderr, "streaming bench: the streaming server did not start\n");
        return 1;
    }

    // nginx: one worker, in the foreground, everything in the temporary folder.
    const int nginxPort = freePort();
    {
        std::ofstream conf(dir + "/nginx.conf");
        conf << "worker_processes 1;\ndaemon off;\npid " << dir << "/nginx.pid;\nerror_log " << dir
             << "/nginx-error.log;\n"
             << "events { worker_connections 64; }\n"
             << "http {\n  access_log off;\n  sendfile " << sendfile << ";\n  tcp_nopush on;\n"
             << "  default_type application/octet-stream;\n  types { video/mp4 mp4; }\n"
             << "  client_body_temp_path " << dir << "/tmp/body;\n  proxy_temp_path " << dir << "/tmp/proxy;\n"
             << "  fastcgi_temp_path " << dir << "/tmp/fastcgi;\n  uwsgi_temp_path " << dir << "/tmp/uwsgi;\n"
             << "  scgi_temp_path " << dir << "/tmp/scgi;\n"
             // The same request path as the streaming server's (the file's
             // absolute path); nothing else is served.
             << "  server {\n    listen 127.0.0.1:" << nginxPort << ";\n    location / { return 404; }\n"
             << "    location ^~ " << media << "/ { root /; }\n  }\n}\n";
    }
    pid_t nginx = fork();
    if (nginx == 0) {
        int null = open("/dev/null", O_WRONLY);
        if (null >= 0) {
            dup2(null, 1);
            dup2(null, 2);
        }
        execlp(nginxBin.c_str(), nginxBin.c_str(), "-p", dir.c_str(), "-c", (dir + "/nginx.conf").c_str(),
               static_cast<char*>(nullptr));
        _exit(127);
    }
    auto endNginx = [&] {
        if (nginx > 0) {
            kill(nginx, SIGTERM);
            waitpid(nginx, nullptr, 0);
            nginx = -1;
        }
    };
    // Up once it accepts and its one worker (the process that serves, and
    // spends the CPU) exists: the master forks it after it listens.
    int worker = -1;
    for (int i = 0; i < 100 && (worker <= 0 || !accepts(nginxPort)); ++i) {
        usleep(50 * 1000);
        std::ifstream children("/proc/" + std::to_string(nginx) + "/task/" + std::to_string(nginx) + "/children");
        if (!(children >> worker)) worker = -1;
    }
    if (!accepts(nginxPort) || worker <= 0) {
        fprintf(stderr, "streaming bench: nginx did not start (see %s/nginx-error.log)\n", dir.c_str());
        (void)!std::system(("cat '" + dir + "/nginx-error.log' >&2").c_str());
        endNginx();
        return 1;
    }

    printf("streaming throughput: %d MiB file over loopback, %d rounds per client; nginx 1 worker, sendfile %s\n", sizeMb,
           rounds, sendfile.c_str());
    fflush(stdout);

    struct Side {
        const char* name;
        int port;
        bool isOurs;
        std::vector<double> mbps;
        double cpu = 0;
        uint64_t bytes = 0;
        int failed = 0;
    };
    auto fetch = [&](Side& s, const std::string& client, bool measured) {
        if (gInterrupted) return;
        const double cpu0 = s.isOurs ? cpuOfSelf() : cpuOfProcess(worker);
        Fetch f = client == "curl" ? curlFetch("http://127.0.0.1:" + std::to_string(s.port) + file)
                                   : rawFetch(s.port, file);
        const double cpu1 = s.isOurs ? cpuOfSelf() : cpuOfProcess(worker);
        if (!measured) return;
        if (!f.ok || f.bytes != fileSize) {
            ++s.failed;
            return;
        }
        s.mbps.push_back(static_cast<double>(f.bytes) / 1e6 / f.seconds);
        s.cpu += cpu1 - cpu0;
        s.bytes += f.bytes;
    };
    bool allMeasured = true;
    for (const std::string& c : {std::string("curl"), std::string("raw")}) {
        if (client != "both" && client != c) continue;
        if (gInterrupted) break;
        Side ours{"streaming server", ourPort, true, {}, 0, 0, 0}, ref{"nginx", nginxPort, false, {}, 0, 0, 0};
        // Once each unmeasured: the file into the page cache, both servers warm.
        fetch(ours, c, false);
        fetch(ref, c, false);
        for (int r = 0; r < rounds; ++r) {
            if (r % 2 == 0) {
                fetch(ours, c, true);
                fetch(ref, c, true);
            } else {
                fetch(ref, c, true);
                fetch(ours, c, true);
            }
        }
        printf(" client %s:\n", c == "curl" ? "curl (body to /dev/null)" : "own (1 MiB reads, body dropped)");
        for (Side* s : {&ours, &ref}) {
            double lo = s->mbps.empty() ? 0 : *std::min_element(s->mbps.begin(), s->mbps.end());
            double hi = s->mbps.empty() ? 0 : *std::max_element(s->mbps.begin(), s->mbps.end());
            printf("  %-16s  median %8.1f MB/s   (min %.1f, max %.1f; %zu ok, %d failed)   CPU %.3f s per 100 MB\n",
                   s->name, median(s->mbps), lo, hi, s->mbps.size(), s->failed,
                   s->bytes ? s->cpu / (static_cast<double>(s->bytes) / 1e8) : 0.0);
        }
        if (ours.mbps.empty() || ref.mbps.empty()) {
            allMeasured = false;
            continue;
        }
        printf("  ratio streaming server / nginx:  %.2f\n", median(ours.mbps) / median(ref.mbps));
        fflush(stdout);
    }
    endNginx();
    server.stop();
    if (gInterrupted) fprintf(stderr, "streaming bench: interrupted\n");
    return allMeasured && !gInterrupted ? 0 : 1;
}
