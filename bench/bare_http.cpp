// A bare libmicrohttpd program: answers every request with the bytes of a file, from memory.
//
//     bare_http FILE
//
// It listens on a free port of 127.0.0.1, prints the port, and ends when its input ends.
#include <arpa/inet.h>
#include <microhttpd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace {

// Called twice for each request. A response to the first call would end the connection.
MHD_Result Answer(void* body, MHD_Connection* connection, const char* /*url*/, const char* /*method*/,
                  const char* /*version*/, const char* /*data*/, size_t* /*size*/, void** state) {
    if (*state == nullptr) {
        *state = body;
        return MHD_YES;
    }
    auto& text = *static_cast<std::string*>(body);
    MHD_Response* response = MHD_create_response_from_buffer(text.size(), text.data(), MHD_RESPMEM_PERSISTENT);
    const MHD_Result result = MHD_queue_response(connection, MHD_HTTP_OK, response);
    MHD_destroy_response(response);
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    std::ifstream file(argv[1], std::ios::binary);
    std::string body{std::istreambuf_iterator<char>(file), {}};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    MHD_Daemon* daemon = MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD, 0, nullptr, nullptr, &Answer, &body,
                                          MHD_OPTION_SOCK_ADDR, &address, MHD_OPTION_END);
    if (daemon == nullptr) {
        return 1;
    }
    (void)std::printf("%d\n", MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT)->port);
    (void)std::fflush(stdout);
    (void)std::getchar();
    MHD_stop_daemon(daemon);
    return 0;
}
