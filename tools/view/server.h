#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace httplib {
class Server;
struct Request;
} // namespace httplib

// Serves a page to the browsers of this machine that know its address: the address holds a random
// token, and only the loopback interface listens. Requests from other sites' pages, for other host
// names, or longer than a few kilobytes are refused. No path of a request names a file.
class Server {
public:
    using Write = std::function<void(std::string_view)>;
    struct Reply {
        int status = 200;
        std::string type = {}; // of the content
        std::string content = {};
        std::function<void(const Write&)> stream = {}; // if set, writes the content bit by bit
    };
    // Gets the body of a POST, or an empty text. Called by several threads at once.
    using Handler = std::function<Reply(const std::string& body)>;

    // Binds a free port. Throws std::runtime_error.
    Server();
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // `path`: what follows the token; empty for the page itself. Before Run().
    void Get(const std::string& path, Handler handler) { gets_[path] = std::move(handler); }
    void Post(const std::string& path, Handler handler) { posts_[path] = std::move(handler); }

    std::string address() const;

    // Of the page's scripts and styles, and the policy that every reply carries.
    const std::string& nonce() const { return nonce_; }
    std::string Policy() const;

    // Serves until no request has come for this time; before the first one it waits for ever.
    void Run(std::chrono::seconds idle);

private:
    using Handlers = std::map<std::string, Handler>;

    // The HTTP status that refuses the request, or 0.
    int Refusal(const httplib::Request& request) const;

    std::unique_ptr<httplib::Server> http_;
    std::string token_;
    std::string nonce_;
    std::string host_; // "127.0.0.1:PORT"
    Handlers gets_;
    Handlers posts_;
    std::atomic<std::chrono::steady_clock::time_point> last_ = {}; // request, if any
};
