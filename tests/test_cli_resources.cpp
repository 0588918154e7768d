// dovra-json when its resources run out: an address-space limit anywhere
// in a run ends in the host's out-of-memory error or in success, never in a
// signal; and output that cannot be written is reported, not lost.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const std::string kBinary = std::string(DOVRA_BINARY_DIR) + "/bin/dovra-json";

struct Scratch {
  fs::path path;
  Scratch() {
    char pattern[] = "/tmp/dovra-cli-resources-XXXXXX";
    path = ::mkdtemp(pattern);
  }
  ~Scratch() { fs::remove_all(path); }
};
const Scratch& scratch() {
  static const Scratch s;
  return s;
}

std::string read_file(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// A 1000x1000 matrix of doubles with 17 significant digits, about 20 MB:
// large enough that the input, the host text, the array and the encoded text
// each take a share of the address space a limit can fall in.
const std::string& matrix_file() {
  static const std::string path = [] {
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> value(-1e3, 1e3);
    std::string json = "[";
    char digits[32];
    for (int row = 0; row < 1000; ++row) {
      json += row ? ",[" : "[";
      for (int col = 0; col < 1000; ++col) {
        if (col) json += ',';
        json.append(digits, std::to_chars(digits, digits + sizeof digits, value(random)).ptr);
      }
      json += ']';
    }
    json += "]\n";
    const fs::path p = scratch().path / "matrix.json";
    std::ofstream(p, std::ios::binary) << json;
    return p.string();
  }();
  return path;
}

struct Outcome {
  int exit_code = -1;  // -1 when ended by a signal
  int signal = 0;
  std::string out, err;
};

// Runs dovra-json with stdout on the given file, under an address-space
// limit in bytes (0: none), set in the child before exec.
Outcome run(const std::vector<std::string>& args, rlim_t address_space, const std::string& stdout_path) {
  const fs::path err_path = scratch().path / "stderr";
  std::vector<char*> argv{const_cast<char*>(kBinary.c_str())};
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    const int out = ::open(stdout_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = ::open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(out, 1);
    ::dup2(err, 2);
    if (address_space) {
      const rlimit limit{address_space, address_space};
      ::setrlimit(RLIMIT_AS, &limit);
    }
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  Outcome r;
  if (WIFEXITED(status)) r.exit_code = WEXITSTATUS(status);
  else r.signal = WTERMSIG(status);
  if (stdout_path != "/dev/full") r.out = read_file(stdout_path);
  r.err = read_file(err_path);
  return r;
}

TEST(CliResources, EveryAddressSpaceLimitEndsInSuccessOrNomem) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's runtime reserves more address space than any limit here";
#endif
  const std::string out_path = (scratch().path / "stdout").string();
  const std::vector<std::vector<std::string>> commands = {{"decode"}, {"encode", "--format", "small"}};
  int failures = 0, successes = 0, i = 0;
  for (const auto& command : commands) {
    // From below what the first allocation needs to above what the whole
    // command needs, in steps finer than any one of its large buffers.
    for (rlim_t mb = 16; mb <= 208; mb += 16, ++i) {
      const bool json = i % 2;
      std::vector<std::string> args = command;
      args.insert(args.end(), {"--error-format", json ? "json" : "text", matrix_file()});
      const Outcome r = run(args, mb << 20, out_path);
      const std::string row = command[0] + " under " + std::to_string(mb) + " MB, " + (json ? "json" : "text");
      ASSERT_EQ(r.signal, 0) << row << " ended by signal " << r.signal << "\n" << r.err;
      if (r.exit_code == 0) {
        ++successes;
        EXPECT_FALSE(r.out.empty()) << row;
        continue;
      }
      ++failures;
      EXPECT_EQ(r.exit_code, 1) << row << "\n" << r.err;
      EXPECT_TRUE(r.out.empty()) << row << ": output after a failure";
      const std::string expected = json ? "{\"identifier\":\"IXTAL:nomem\"" : "\nidentifier: IXTAL:nomem\n";
      EXPECT_NE(r.err.find(expected), std::string::npos) << row << "\n" << r.err;
    }
  }
  // The series must straddle the need, or it proves nothing.
  EXPECT_GT(failures, 0);
  EXPECT_GT(successes, 0);
}

TEST(CliResources, AnOutputThatRefusesTheTextIsNamed) {
  struct Row {
    std::vector<std::string> args;
    std::string expected_err;
  };
  const std::vector<Row> rows = {
      {{"encode", "--text", "[1,2]"}, "dovra-json: cannot write standard output: No space left on device\n"},
      {{"decode", "--text", "[1,2]"}, "dovra-json: cannot write standard output: No space left on device\n"},
      {{"encode", "--error-format", "json", "--text", "1"},
       "{\"identifier\":\"dovra-json:CannotWriteOutput\",\"arguments\":[\"standard output\",\"No space left on "
       "device\"],\"message\":\"cannot write standard output: No space left on device\"}\n"},
  };
  for (const auto& row : rows) {
    const Outcome r = run(row.args, 0, "/dev/full");
    EXPECT_EQ(r.exit_code, 1) << row.args[0];
    EXPECT_EQ(r.err, row.expected_err) << row.args[0];
  }
}

}  // namespace
