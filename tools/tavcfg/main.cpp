/*
 * tavcfg: looks into and edits extended configuration files.
 */
#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <new>
#include <string_view>
#include <system_error>

#include "command_line.h"
#include "errors.h"
#include "platform/bex_vfs.h"
#include "tav/error.h"
#include "tav_common.h"
#include "tav_extcfg.h"
#include "tav_posix.h"
#include "tav_session.h"
#include "terminal.h"

namespace tavcfg {

namespace {

/**
 * Makes sure that no file we open becomes one of the standard streams, where messages would be written into it. A
 * stream that was closed is opened the wrong way round, so that using it still fails.
 */
void KeepStandardStreams() {
    for (int stream = 0; stream <= 2; ++stream) {
        if (fcntl(stream, F_GETFD) == -1) {
            static_cast<void>(open("/dev/null", stream == 0 ? O_WRONLY : O_RDONLY));
        }
    }
}

/** Switches the debug log on, and says where it would go if it cannot. */
void StartLog() {
    TAV_SetDebugFlag();
    char workPath[TAV_EXT_PATH_SIZE] = "";
    MEL_GetSysWorkPath(workPath, sizeof(workPath));
    const std::string directory = std::string(workPath) + "var/log";
    std::error_code error;
    if (!std::filesystem::is_directory(directory, error)) {
        fmt::print(stderr, "tavcfg: no debug log: it goes to {0}/tav_debug.log, and {0} does not exist\n", directory);
    }
}

/** Fixes the time that is written into files, when the environment says so. */
void TakeSourceDate() {
    const char *const given = getenv("SOURCE_DATE_EPOCH");
    const std::string_view text = given != nullptr ? given : "";
    uint64_t seconds = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    const bool isTime = error == std::errc() && stop == text.data() + text.size();
    if (!text.empty() && (!isTime || TAV_Posix_FixSystemTime(seconds) != 0)) {
        throw UsageError(fmt::format("SOURCE_DATE_EPOCH: '{}' is no number of seconds since 1970", text));
    }
}

/** Prints a message as one line, whatever file names and data it quotes. */
void PrintError(const std::string &message) {
    constexpr size_t kLongest = 1000;
    const std::string text = Printable(message), start = Cut(text, kLongest);
    fprintf(stderr, "tavcfg: %s%s\n", start.c_str(), start.size() < text.size() ? "..." : "");
}

/** Throws Failure when something that was printed did not arrive, unless whoever reads has seen enough. */
void FinishOutput() {
    errno = 0;
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        if (errno == EPIPE) {
            return;
        }
        throw Failure("cannot write to standard output: " + std::generic_category().message(errno != 0 ? errno : EIO));
    }
}

int Run(int argc, const char *const *argv) {
    std::optional<Invocation> invocation;  // none while the command line is not understood, and for a help text
    try {
        invocation = ParseCommandLine(argc, argv);
        int code = 0;
        if (invocation) {
            if (invocation->logs) {
                StartLog();
            }
            TakeSourceDate();
            TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
            code = invocation->run();
        }
        FinishOutput();
        return code;
    } catch (const UsageError &error) {
        PrintError(error.what());
        return 2;
    } catch (const Denial &denial) {
        PrintError(denial.what());
        return 1;
    } catch (const tav::Error &error) {
        PrintError(WithWayOut(error));
        if (error.Code() == TAV_ERR_LOCKED) {
            return 3;
        }
    } catch (const std::bad_alloc &) {
        PrintError("memory is short");
    } catch (const std::filesystem::filesystem_error &error) {
        PrintError(fmt::format("{}: {}", error.path1().string(), error.code().message()));
    } catch (const std::system_error &error) {  // of printing
        if (error.code() == std::errc::broken_pipe) {
            return invocation ? invocation->cutShortCode : 0;
        }
        PrintError("cannot write to standard output: " + error.code().message());
    } catch (const std::exception &error) {
        PrintError(error.what());
    }
    return invocation ? invocation->failureCode : 1;
}

}  // namespace

}  // namespace tavcfg

int main(int argc, char **argv) {
    signal(SIGPIPE, SIG_IGN);
    tavcfg::KeepStandardStreams();
    return tavcfg::Run(argc, argv);
}
