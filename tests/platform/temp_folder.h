/*
 * A folder that lives as long as a test.
 */
#ifndef TESTS_PLATFORM_TEMP_FOLDER_H
#define TESTS_PLATFORM_TEMP_FOLDER_H

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

class TempFolderTest : public testing::Test {
  protected:
    void SetUp() override {
        std::string name = testing::TempDir() + "tav_platform_XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder_ = name;
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::string PathOf(const std::string &name) const { return folder_ + "/" + name; }

    /** Number of files in the folder. */
    long FileCount() const { return std::distance(std::filesystem::directory_iterator(folder_), {}); }

    static std::string Content(const std::string &path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static void SetContent(const std::string &path, const std::string &content) {
        std::ofstream(path, std::ios::binary) << content;
    }

    static unsigned ModeOf(const std::string &path) {
        struct stat status = {};
        return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }

    std::string folder_;
};

#endif
