#include "tools/view/server.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>

#include <sys/socket.h>

#include <httplib.h>

#include <fmt/core.h>

namespace {

constexpr std::size_t kLongestBody = 1 << 15;
constexpr std::size_t kThreads = 64;
constexpr char kLoopback[] = "127.0.0.1";

// 128 random bits.
std::string Secret() {
    std::random_device random; // the system's generator
    std::string text;
    for (int i = 0; i < 4; ++i) {
        text += fmt::format("{:08x}", random());
    }
    return text;
}

// In a time that does not tell how many characters agree.
bool Equal(std::string_view a, std::string_view b) {
    unsigned difference = a.size() == b.size() ? 0 : 1;
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
    }
    return difference == 0;
}

// A body of a length that is told and that no compression hides.
bool HasShortBody(const httplib::Request& request) {
    if (request.has_header("Transfer-Encoding") || request.has_header("Content-Encoding")) {
        return false;
    }
    const std::string length = request.get_header_value("Content-Length");
    return length.size() < 8 &&
           std::ranges::all_of(length, [](char digit) { return digit >= '0' && digit <= '9'; }) &&
           std::strtoul(length.c_str(), nullptr, 10) <= kLongestBody;
}

} // namespace

Server::Server() : http_(std::make_unique<httplib::Server>()), token_(Secret()), nonce_(Secret()) {
    // The library's own options would let another process listen on the same port.
    int socket = -1;
    http_->set_socket_options([&socket](int made) { socket = made; });
    const int port = http_->bind_to_any_port(kLoopback);
    if (port <= 0 || ::listen(socket, SOMAXCONN) != 0) { // the library's own queue is short
        throw std::runtime_error("cannot listen on the loopback address");
    }
    host_ = fmt::format("{}:{}", kLoopback, port);
    http_->set_payload_max_length(kLongestBody);
    http_->set_keep_alive_max_count(1); // what is refused unread must not be taken for a request
    http_->set_tcp_nodelay(true);
    // Each connection holds a thread while it is idle: browsers open some ahead.
    http_->new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
    http_->set_exception_handler([](const auto&, httplib::Response& response, const auto&) {
        response.status = 500; // without the words, which may hold paths
    });
}

Server::~Server() = default;

std::string Server::address() const {
    return fmt::format("http://{}/{}/", host_, token_);
}

std::string Server::Policy() const {
    return fmt::format("default-src 'none'; script-src 'nonce-{0}'; style-src 'nonce-{0}'; "
                       "img-src data:; connect-src 'self'; base-uri 'none'; form-action 'none'",
                       nonce_);
}

// Judged before a body is read. A page of another site can send requests here, but neither with
// this Host (its name may resolve to this address) nor with this Origin, and not with the token.
int Server::Refusal(const httplib::Request& request) const {
    const std::string origin = request.get_header_value("Origin");
    const bool post = request.method == "POST";
    const Handlers& handlers = post ? posts_ : gets_;
    const auto end = request.path.find('/', 1);
    const bool ours = request.get_header_value_count("Host") == 1 &&
                      request.get_header_value("Host") == host_ &&
                      (origin == "http://" + host_ || (origin.empty() && !post)) &&
                      Equal(request.path.substr(0, end), "/" + token_);
    if (!ours) {
        return 403;
    }
    if ((!post && request.method != "GET") || end == std::string::npos ||
        !handlers.contains(request.path.substr(end + 1))) {
        return 404;
    }
    return HasShortBody(request) ? 0 : 413;
}

void Server::Run(std::chrono::seconds idle) {
    using Clock = std::chrono::steady_clock;
    const httplib::Headers headers = {
        {"Content-Security-Policy", Policy() + "; frame-ancestors 'none'"},
        {"Cache-Control", "no-store"},
        {"Referrer-Policy", "no-referrer"},
        {"X-Content-Type-Options", "nosniff"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Cross-Origin-Opener-Policy", "same-origin"}};
    http_->set_default_headers(headers);
    http_->set_pre_routing_handler(
        [this](const httplib::Request& request, httplib::Response& response) {
            if (const int status = Refusal(request); status != 0) {
                response.status = status;
                return httplib::Server::HandlerResponse::Handled;
            }
            last_ = Clock::now();
            return httplib::Server::HandlerResponse::Unhandled;
        });
    const auto take = [](const Handler& handler) {
        return [&handler](const httplib::Request& request, httplib::Response& response) {
            Reply reply = handler(request.body);
            response.status = reply.status;
            if (!reply.stream) {
                response.set_content(reply.content, reply.type.c_str());
                return;
            }
            // Its length is not known: the connection ends with it.
            response.set_content_provider(
                reply.type, [stream = std::move(reply.stream)](std::size_t, httplib::DataSink& to) {
                    stream([&to](std::string_view text) { to.write(text.data(), text.size()); });
                    to.done();
                    return true;
                });
        };
    };
    for (const auto& [path, handler] : gets_) {
        http_->Get("/" + token_ + "/" + path, take(handler));
    }
    for (const auto& [path, handler] : posts_) {
        http_->Post("/" + token_ + "/" + path, take(handler));
    }
    std::mutex mutex;
    std::condition_variable wake;
    bool done = false;
    std::thread watch([&] {
        std::unique_lock lock(mutex);
        while (!wake.wait_for(lock, std::chrono::seconds(1), [&] { return done; })) {
            if (last_.load() != Clock::time_point() && Clock::now() - last_.load() > idle) {
                http_->stop();
            }
        }
    });
    http_->listen_after_bind();
    {
        const std::lock_guard lock(mutex);
        done = true;
    }
    wake.notify_all();
    watch.join();
}
