#include "programs.h"

#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace test {

namespace fs = std::filesystem;

Result Shell(const std::string& line) {
    Result result;
    FILE* pipe = popen(("{ " + line + "\n} 2>&1 </dev/null").c_str(), "r");
    if (pipe == nullptr) return result;
    char piece[4096];
    size_t length;
    while ((length = fread(piece, 1, sizeof piece, pipe)) > 0) result.out.append(piece, length);
    int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

PostgresServer::PostgresServer() : place(fs::current_path().string() + "/pg") {
    std::error_code error;
    for (fs::directory_iterator entry("/usr/lib/postgresql", error), end; !error && entry != end;
         entry.increment(error))
        if (fs::exists(entry->path() / "bin/initdb")) programs = (entry->path() / "bin").string() + "/";
    if (programs.empty()) {
        why = "there is no PostgreSQL server on this machine (apt-get install postgresql)";
        return;
    }
    fs::create_directory(place);
    if (geteuid() == 0) {
        const passwd* user = getpwnam("postgres");
        if (user == nullptr || chown(place.c_str(), user->pw_uid, user->pw_gid) != 0) {
            why = "there is no user postgres, and the server doesn't run as root";
            return;
        }
    }
    Result made =
        Shell(As(programs + "initdb -D " + place + "/data -A trust -U postgres -E UTF8 --locale=C.UTF-8 -N"));
    Result started = Shell(As(programs + "pg_ctl -D " + place + "/data -w -l " + place + "/log -o \"-k " +
                              place + " -c listen_addresses= -c fsync=off -c shared_buffers=1MB\" start"));
    running = made.status == 0 && started.status == 0;
    if (!running) why = "the PostgreSQL server doesn't start: " + made.out + started.out;
}

PostgresServer::~PostgresServer() {
    if (running) Shell(As(programs + "pg_ctl -D " + place + "/data -m immediate stop"));
}

// A server that refuses root runs as the user of the package.
std::string PostgresServer::As(const std::string& command) const {
    return geteuid() == 0 ? "cd / && runuser -u postgres -- " + command : command;
}

std::string PostgresServer::Psql() const {
    return programs + "psql -X -q -A -t -v ON_ERROR_STOP=1 -h " + place + " -U postgres postgres";
}

Result PostgresServer::Script(const std::string& file) const { return Shell(Psql() + " -f " + file); }

Result PostgresServer::Query(const std::string& sql) const { return Shell(Psql() + " -c \"" + sql + "\""); }

}  // namespace test
