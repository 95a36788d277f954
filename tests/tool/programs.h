// Programs by others, which the tests feed with what the tool writes.
#pragma once

#include "tool.h"

namespace test {

// Runs a line of the shell; both outputs together.
Result Shell(const std::string& line);

// A PostgreSQL server of the test's own: in the test's directory, reached by a
// socket there alone, and gone with the test.
class PostgresServer {
  public:
    PostgresServer();
    ~PostgresServer();
    PostgresServer(const PostgresServer&) = delete;
    void operator=(const PostgresServer&) = delete;

    // Why there is none; nothing when it runs.
    const std::string& trouble() const { return why; }
    // Gives psql a script, or a query whose rows come as lines of values.
    Result Script(const std::string& file) const;
    Result Query(const std::string& sql) const;

  private:
    std::string As(const std::string& command) const;
    std::string Psql() const;

    std::string programs;
    std::string place;
    std::string why;
    bool running = false;
};

}  // namespace test
