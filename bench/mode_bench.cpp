// Mode server request rate, side by side with two references in the same run:
//
//   floor  the minimal sequential server: accept, read the request head,
//          write the mode server's reply, shut down, pause 500 us, close. The
//          mode server closes each connection the same way, so this is the
//          best it could do: its design floor.
//   nginx  nginx with one worker answering the same reply headers, as a
//          well-known server's rate for the same exchange.
//   mode   the library's mode server (its own thread, first free port from
//          7788), answering a phone app's plain GET of /mode/control.
//
// Each is driven by ApacheBench with one connection at a time and one request
// per connection (ab -c 1, no keep-alive), in rounds of floor, mode, nginx, so
// that the machine's load falls on all three alike. Prints the requests per
// second of every run, the medians, and the mode server's ratios to the floor
// and to nginx.
//
// The mode server binds fixed ports: scripts/bench.sh runs this in a network
// namespace of its own. The library's log goes to the file CAMWIFI_LOG names
// (scripts/bench.sh points it into a temporary folder), as on the simulator.
//
//   camwifi_mode_bench [--requests N] [--rounds N] [--ab PATH] [--nginx PATH]
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ModeServer/ModeServer.h"

namespace {

// What the mode server answers a GET of /mode/control in IDLE mode, byte for
// byte (checked against the mode server before measuring).
const char kReply[] =
    "HTTP/1.1 200 OK\r\n"
    "Server: ORB Mode Server\r\n"
    "Operation-Mode: IDLE\r\n"
    "Default-URL: unavailable\r\n"
    "MVERSION: 1.0\r\n"
    "Content-Type: text/xml;charset=utf-8 \r\n"
    "Cache-Control: no-cache\r\n"
    "\r\n";

const char kRequest[] = "GET /mode/control HTTP/1.0\r\nHost: 127.0.0.1\r\nUser-Agent: ORB_MODE_bench\r\n\r\n";

// Where this program's own messages go (standard error until main moves
// the library's copy of it away).
FILE* gOut = stderr;

bool sendAll(int fd, const char* data, size_t len) {
    while (len > 0) {
        const ssize_t n = send(fd, data, len, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

int listenLoopback(uint16_t* port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    const int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(fd, 128) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        close(fd);
        return -1;
    }
    *port = ntohs(a.sin_port);
    return fd;
}

// A free loopback port for nginx (bound, read, released).
uint16_t freePort() {
    uint16_t port = 0;
    const int fd = listenLoopback(&port);
    if (fd >= 0) close(fd);
    return port;
}

// ---- The design floor ----------------------------------------------------------

class FloorServer {
public:
    bool start() {
        m_fd = listenLoopback(&m_port);
        if (m_fd < 0) return false;
        m_thread = std::thread([this] { run(); });
        return true;
    }
    void stop() {
        m_stop.store(true);
        // Wake the accept with a connection of our own.
        const int c = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a.sin_port = htons(m_port);
        if (c >= 0) {
            connect(c, reinterpret_cast<sockaddr*>(&a), sizeof a);
            close(c);
        }
        if (m_thread.joinable()) m_thread.join();
        close(m_fd);
    }
    uint16_t port() const { return m_port; }

private:
    void run() {
        char buf[4096];
        while (!m_stop.load()) {
            const int c = accept4(m_fd, nullptr, nullptr, SOCK_CLOEXEC);
            if (c < 0) {
                if (errno == EINTR || errno == ECONNABORTED) continue;
                return;
            }
            std::string head;
            while (head.find("\r\n\r\n") == std::string::npos && head.size() < 65536) {
                const ssize_t n = recv(c, buf, sizeof buf, 0);
                if (n < 0 && errno == EINTR) continue;
                if (n <= 0) break;
                head.append(buf, static_cast<size_t>(n));
            }
            if (head.find("\r\n\r\n") != std::string::npos) sendAll(c, kReply, sizeof kReply - 1);
            shutdown(c, SHUT_WR);
            usleep(500);
            close(c);
        }
    }

    int m_fd = -1;
    uint16_t m_port = 0;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// ---- nginx ---------------------------------------------------------------------

class Nginx {
public:
    bool start(const std::string& binary) {
        char tmpl[] = "/tmp/camwifi-mode-bench.XXXXXX";
        if (mkdtemp(tmpl) == nullptr) return false;
        m_dir = tmpl;
        m_port = freePort();
        if (m_port == 0) return false;
        const std::string conf = m_dir + "/nginx.conf";
        FILE* f = fopen(conf.c_str(), "w");
        if (f == nullptr) return false;
        // One worker; no keep-alive (one request per connection, as phones
        // ask the mode server); no access log; the mode server's headers.
        // nginx adds its own Server, Date and Content-Length lines.
        fprintf(f,
                "worker_processes 1;\n"
                "daemon off;\n"
                "pid %s/nginx.pid;\n"
                "error_log %s/error.log;\n"
                "events { worker_connections 64; }\n"
                "http {\n"
                "  access_log off;\n"
                "  keepalive_timeout 0;\n"
                "  server_tokens off;\n"
                "  client_body_temp_path %s/body;\n"
                "  proxy_temp_path %s/proxy;\n"
                "  fastcgi_temp_path %s/fastcgi;\n"
                "  uwsgi_temp_path %s/uwsgi;\n"
                "  scgi_temp_path %s/scgi;\n"
                "  server {\n"
                "    listen 127.0.0.1:%u;\n"
                "    location / {\n"
                "      default_type \"text/xml;charset=utf-8\";\n"
                "      add_header Operation-Mode IDLE;\n"
                "      add_header Default-URL unavailable;\n"
                "      add_header MVERSION 1.0;\n"
                "      add_header Cache-Control no-cache;\n"
                "      return 200;\n"
                "    }\n"
                "  }\n"
                "}\n",
                m_dir.c_str(), m_dir.c_str(), m_dir.c_str(), m_dir.c_str(), m_dir.c_str(), m_dir.c_str(),
                m_dir.c_str(), static_cast<unsigned>(m_port));
        fclose(f);
        m_pid = fork();
        if (m_pid == 0) {
            execl(binary.c_str(), binary.c_str(), "-p", m_dir.c_str(), "-c", conf.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        if (m_pid < 0) return false;
        // Ready once it accepts a connection (at most 5 s).
        for (int i = 0; i < 500; ++i) {
            if (answers()) return true;
            int status;
            if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
                m_pid = -1;
                return false;
            }
            usleep(10000);
        }
        return false;
    }
    void stop() {
        if (m_pid > 0) {
            kill(m_pid, SIGQUIT);
            int status;
            waitpid(m_pid, &status, 0);
            m_pid = -1;
        }
        if (!m_dir.empty()) {
            const std::string cmd = "rm -rf '" + m_dir + "'";
            if (system(cmd.c_str()) != 0) fprintf(gOut, "mode_bench: could not remove %s\n", m_dir.c_str());
        }
    }
    uint16_t port() const { return m_port; }

private:
    bool answers() const {
        const int c = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (c < 0) return false;
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a.sin_port = htons(m_port);
        const bool ok = connect(c, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
        close(c);
        return ok;
    }

    std::string m_dir;
    uint16_t m_port = 0;
    pid_t m_pid = -1;
};

// ---- Measuring -----------------------------------------------------------------

// One exchange by hand: the reply the server at port gives kRequest.
std::string exchange(uint16_t port) {
    const int c = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (c < 0) return "";
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(port);
    std::string reply;
    if (connect(c, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 && sendAll(c, kRequest, sizeof kRequest - 1)) {
        char buf[4096];
        for (int i = 0; i < 1000; ++i) {
            const ssize_t n = recv(c, buf, sizeof buf, 0);
            if (n <= 0) break;
            reply.append(buf, static_cast<size_t>(n));
        }
    }
    close(c);
    return reply;
}

// Requests per second ab measured against port, or a negative value when
// the run failed or had failed requests.
double runAb(const std::string& ab, uint16_t port, int requests) {
    const std::string cmd = "'" + ab + "' -q -c 1 -n " + std::to_string(requests) + " -H 'User-Agent: ORB_MODE_bench'" +
                            " http://127.0.0.1:" + std::to_string(port) + "/mode/control 2>&1";
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr) return -1;
    char line[512];
    double rate = -1;
    long failed = -1, completed = -1, non2xx = 0;
    std::string all;
    while (fgets(line, sizeof line, p) != nullptr) {
        all += line;
        sscanf(line, "Requests per second: %lf", &rate);
        sscanf(line, "Failed requests: %ld", &failed);
        sscanf(line, "Complete requests: %ld", &completed);
        sscanf(line, "Non-2xx responses: %ld", &non2xx);
    }
    const int status = pclose(p);
    if (status != 0 || failed != 0 || non2xx != 0 || completed != requests) {
        fprintf(gOut, "mode_bench: ab against port %u did not complete cleanly:\n%s", static_cast<unsigned>(port),
                all.c_str());
        return -1;
    }
    return rate;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n == 0 ? 0 : (n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2);
}

bool executable(const std::string& path) { return access(path.c_str(), X_OK) == 0; }

void onModeEvent(int, eModeServerInternalEvent, intptr_t, intptr_t) {}

}  // namespace

int main(int argc, char** argv) {
    int requests = 2000, rounds = 3;
    std::string ab = "/usr/bin/ab", nginx = "/usr/sbin/nginx";
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (strcmp(argv[i], "--requests") == 0 && hasValue) {
            requests = atoi(argv[++i]);
        } else if (strcmp(argv[i], "--rounds") == 0 && hasValue) {
            rounds = atoi(argv[++i]);
        } else if (strcmp(argv[i], "--ab") == 0 && hasValue) {
            ab = argv[++i];
        } else if (strcmp(argv[i], "--nginx") == 0 && hasValue) {
            nginx = argv[++i];
        } else {
            fprintf(stderr, "usage: %s [--requests N (10-1000000)] [--rounds N (1-50)] [--ab PATH] [--nginx PATH]\n",
                    argv[0]);
            return 2;
        }
    }
    if (requests < 10 || requests > 1000000 || rounds < 1 || rounds > 50) {
        fprintf(stderr, "mode_bench: --requests 10-1000000, --rounds 1-50\n");
        return 2;
    }
    if (!executable(ab)) {
        fprintf(stderr, "mode_bench: no ApacheBench at %s (Debian package apache2-utils)\n", ab.c_str());
        return 1;
    }
    const bool withNginx = executable(nginx);
    if (!withNginx) fprintf(stderr, "mode_bench: no nginx at %s (Debian package nginx-light): left out\n", nginx.c_str());
    signal(SIGPIPE, SIG_IGN);
    // The library copies its error lines to standard error (a plain GET from
    // loopback makes two: no MAC address for 127.0.0.1), as a camera's
    // console gets them: they go to /dev/null, this program's own messages to
    // the standard error it was given.
    const int console = dup(STDERR_FILENO);
    FILE* out = console >= 0 ? fdopen(console, "w") : nullptr;
    if (out == nullptr) {
        fprintf(stderr, "mode_bench: cannot keep standard error\n");
        return 1;
    }
    setvbuf(out, nullptr, _IONBF, 0);
    gOut = out;
    FILE* devnull = freopen("/dev/null", "w", stderr);
    if (devnull == nullptr) {
        fprintf(out, "mode_bench: cannot send the library's standard error to /dev/null\n");
        return 1;
    }

    FloorServer floor;
    if (!floor.start()) {
        fprintf(out, "mode_bench: the floor server could not listen\n");
        return 1;
    }
    ModeServer mode(MS_MODE_IDLE);
    mode.setCallback(onModeEvent);
    mode.start();
    if (!mode.waitUntilListening(5000) || mode.getPort() != ModeServer::kFirstPort) {
        fprintf(out, "mode_bench: the mode server is not on port %u (busy? run it in a network namespace of its own)\n",
                static_cast<unsigned>(ModeServer::kFirstPort));
        mode.stopAndJoin();
        floor.stop();
        return 1;
    }
    Nginx web;
    bool nginxUp = withNginx && web.start(nginx);
    if (withNginx && !nginxUp) fprintf(out, "mode_bench: nginx did not start: left out\n");

    // The floor must answer exactly what the mode server answers.
    const std::string modeReply = exchange(mode.getPort());
    if (modeReply != kReply || exchange(floor.port()) != kReply) {
        fprintf(out, "mode_bench: the mode server's reply is not the one the floor server copies:\n%s\n",
                modeReply.c_str());
        web.stop();
        mode.stopAndJoin();
        floor.stop();
        return 1;
    }

    printf("mode server request rate: ab -c 1, one request per connection, %d requests per run, %d rounds\n", requests,
           rounds);
    std::vector<double> floorRates, modeRates, nginxRates;
    bool ok = true;
    for (int r = 0; r < rounds && ok; ++r) {
        const double f = runAb(ab, floor.port(), requests);
        const double m = runAb(ab, mode.getPort(), requests);
        const double n = nginxUp ? runAb(ab, web.port(), requests) : 0;
        if (f <= 0 || m <= 0 || (nginxUp && n <= 0)) {
            ok = false;
            break;
        }
        floorRates.push_back(f);
        modeRates.push_back(m);
        if (nginxUp) nginxRates.push_back(n);
        printf("  round %d: floor %8.0f req/s   mode server %8.0f req/s", r + 1, f, m);
        if (nginxUp) printf("   nginx %8.0f req/s", n);
        printf("   mode/floor %.3f\n", m / f);
    }
    web.stop();
    mode.stopAndJoin();
    floor.stop();
    if (!ok) return 1;

    const double f = median(floorRates), m = median(modeRates);
    printf("median: floor %.0f req/s, mode server %.0f req/s", f, m);
    if (nginxUp) printf(", nginx (1 worker) %.0f req/s", median(nginxRates));
    printf("\nmode server / floor: %.3f\n", m / f);
    if (nginxUp) printf("mode server / nginx: %.3f\n", m / median(nginxRates));
    return 0;
}
