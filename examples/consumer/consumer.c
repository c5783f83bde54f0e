/*
 * A program of your own on the installed camwifi: it registers the mode
 * server's callback, starts the mode server, plays a phone app against it
 * over loopback (the phone announces itself, the program accepts it from the
 * callback, the phone leaves), prints every event and stops the server.
 *
 * Build it against the installed library, either way:
 *   cmake -S examples/consumer -B build-consumer && cmake --build build-consumer
 *   cc consumer.c $(pkg-config --cflags --libs camwifi) -o camwifi-consumer
 *
 * Exit status 0 when the phone was announced (event 1), accepted (200) and
 * seen leaving (event 2); 1 otherwise. Every wait is bounded.
 */
#include <camwifi/camwifi.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

/* The mode server binds the first free port of these. */
#define FIRST_PORT 7788
#define LAST_PORT 7791
/* The phone's own address (all of 127.0.0.0/8 is this machine). The mode
 * server looks the phone's MAC address up in the ARP cache by it; a phone on
 * loopback has none, so event 1 carries an empty MAC text. */
#define PHONE_ADDRESS 0x7f000005u

/* What the callback saw; it runs on the mode server's thread. */
static atomic_int gAnnounced;
static atomic_int gLeft;
static atomic_int gFailed;

/* The mode server's callback: one line per event. Event 1 is answered at
 * once, from inside the callback, as a UI that accepts every phone would. */
static void onModeEvent(ZEB_CALLBACK_EVENT event, void* mac, intptr_t userAgent) {
    switch (event) {
    case 1:
        printf("event 1: a phone announced itself: MAC %s, user agent %s\n",
               *(const char*)mac ? (const char*)mac : "(not in the ARP cache)", (const char*)userAgent);
        ModeServerSendEventToModule(MS_EVENT_KIND_CONFIRM, 1, "accepted by camwifi-consumer");
        atomic_store(&gAnnounced, 1);
        break;
    case 2:
        printf("event 2: a registered phone left\n");
        atomic_store(&gLeft, 1);
        break;
    case 3:
        printf("event 3: the mode server failed and stopped\n");
        atomic_store(&gFailed, 1);
        break;
    default:
        printf("event %d\n", (int)event);
        break;
    }
    fflush(stdout);
}

static void sleepMs(long ms) {
    struct timespec t = {ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&t, NULL);
}

/* Sends one request from the phone's address to 127.0.0.1:port and reads the answer's head into
 * answer (zero-terminated). Returns 0 on success, -1 when the server cannot
 * be reached or does not answer within 5 seconds. */
static int ask(int port, const char* request, char* answer, size_t size) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    struct timeval limit = {5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    struct sockaddr_in from, to;
    memset(&from, 0, sizeof from);
    from.sin_family = AF_INET;
    from.sin_addr.s_addr = htonl(PHONE_ADDRESS);
    memset(&to, 0, sizeof to);
    to.sin_family = AF_INET;
    to.sin_port = htons((unsigned short)port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    size_t used = 0;
    int rc = -1;
    if (bind(fd, (struct sockaddr*)&from, sizeof from) == 0 && connect(fd, (struct sockaddr*)&to, sizeof to) == 0 &&
        send(fd, request, strlen(request), MSG_NOSIGNAL) == (ssize_t)strlen(request)) {
        while (used + 1 < size) {
            ssize_t n = recv(fd, answer + used, size - 1 - used, 0);
            if (n <= 0) break;
            used += (size_t)n;
            answer[used] = '\0';
            if (strstr(answer, "\r\n\r\n") != NULL) break;
        }
        rc = used > 0 ? 0 : -1;
    }
    answer[used] = '\0';
    close(fd);
    return rc;
}

/* The answer's status line, for printing. */
static void printStatus(const char* what, const char* answer) {
    size_t n = strcspn(answer, "\r\n");
    printf("%s: %.*s\n", what, (int)n, answer);
    fflush(stdout);
}

/* The port of our mode server: the first of 7788-7791 that answers as one.
 * The server binds on its own thread, so this waits for it (up to 5 s). */
static int findModeServer(void) {
    static const char query[] = "GET /mode/control HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    char answer[1024];
    for (int tries = 0; tries < 50 && !atomic_load(&gFailed); ++tries) {
        for (int port = FIRST_PORT; port <= LAST_PORT; ++port) {
            if (ask(port, query, answer, sizeof answer) == 0 && strstr(answer, "Server: ORB Mode Server")) {
                return port;
            }
        }
        sleepMs(100);
    }
    return -1;
}

static int waitFor(atomic_int* flag) {
    for (int i = 0; i < 50 && !atomic_load(flag); ++i) sleepMs(100);
    return atomic_load(flag);
}

int main(void) {
    printf("camwifi-consumer: starting the mode server\n");
    fflush(stdout);
    if (ModeServerStart(onModeEvent, MS_MODE_IDLE) != 1) {
        fprintf(stderr, "camwifi-consumer: ModeServerStart refused (a mode server runs already)\n");
        return 1;
    }
    int ok = 0;
    const int port = findModeServer();
    if (port < 0) {
        fprintf(stderr, "camwifi-consumer: no mode server answered on ports %d-%d\n", FIRST_PORT, LAST_PORT);
    } else {
        printf("mode server listening on port %d\n", port);
        char request[512], answer[1024];
        snprintf(request, sizeof request,
                 "GET /mode/control HTTP/1.1\r\nHost: 127.0.0.1:%d\r\nNTS: alive\r\n"
                 "User-Agent: ORB_MODE_Consumer/1.0\r\nCALLBACK: <http://127.0.0.1:9/eventCallback>\r\n\r\n",
                 port);
        /* The answer comes once the callback has accepted the phone. */
        const int announced = ask(port, request, answer, sizeof answer) == 0;
        if (announced) printStatus("phone announced itself, answer", answer);
        const int accepted = announced && strncmp(answer, "HTTP/1.1 200 ", 13) == 0;
        snprintf(request, sizeof request, "GET /mode/control HTTP/1.1\r\nHost: 127.0.0.1:%d\r\nNTS: byebye\r\n\r\n",
                 port);
        const int left = accepted && ask(port, request, answer, sizeof answer) == 0;
        if (left) printStatus("phone said goodbye, answer", answer);
        ok = accepted && waitFor(&gAnnounced) && left && waitFor(&gLeft);
    }
    ModeServerTerminate();
    printf("camwifi-consumer: mode server stopped; %s\n", ok ? "every event arrived" : "FAILED");
    return ok ? 0 : 1;
}
