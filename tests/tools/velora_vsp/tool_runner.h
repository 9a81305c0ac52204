// Runs velora-vsp as a process in a directory of its own, and makes and reads its files.
#pragma once

#include <cstdio>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>

#include "support/temporary_directory.h"
#include "tools/velora_vsp/sounds.h"

class ToolTest : public testing::Test {
protected:
    struct Result {
        int exitCode;
        std::string text; // both standard output and standard error
    };

    std::filesystem::path at(const std::string& name) const { return directory.path / name; }

    /// Runs a shell command in the directory; $T stands for the tool.
    Result shell(const std::string& command) const
    {
        const std::string line = "exec 2>&1; cd '" + directory.path.string() +
                                 "' || exit; T='" VELORA_VSP_TOOL "'; " + command;
        FILE* pipe = popen(line.c_str(), "r");
        if (pipe == nullptr)
            throw std::runtime_error("no shell");
        Result result{0, {}};
        for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe))
            result.text += char(c);
        const int status = pclose(pipe);
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return result;
    }
    Result tool(const std::string& arguments) const { return shell("\"$T\" " + arguments); }

    /// Runs the tool, which must succeed and say nothing.
    void runQuietly(const std::string& arguments) const
    {
        const Result result = tool(arguments + " -q");
        ASSERT_EQ(result.exitCode, 0) << result.text;
        ASSERT_EQ(result.text, "");
    }

    void write(const std::string& name, const Sound& sound, const char* title = nullptr) const
    {
        SF_INFO info{};
        info.format = sound.format;
        info.samplerate = sound.rate;
        info.channels = sound.channels;
        SNDFILE* file = sf_open(at(name).c_str(), SFM_WRITE, &info);
        ASSERT_NE(file, nullptr) << name << ": " << sf_strerror(nullptr);
        sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
        if (title != nullptr)
            sf_set_string(file, SF_STR_TITLE, title);
        sf_writef_double(file, sound.samples.data(), sound.frames());
        sf_close(file);
    }

    Sound read(const std::string& name) const
    {
        SF_INFO info{};
        SNDFILE* file = sf_open(at(name).c_str(), SFM_READ, &info);
        if (file == nullptr) {
            ADD_FAILURE() << name << ": " << sf_strerror(nullptr);
            return {};
        }
        // An extensible header of the same content, and either byte order, are no difference.
        const bool isWav = (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAVEX;
        const int type = isWav ? int(SF_FORMAT_WAV) : info.format & SF_FORMAT_TYPEMASK;
        Sound sound{type | (info.format & SF_FORMAT_SUBMASK), info.samplerate, info.channels, {}};
        sound.samples.resize(size_t(info.frames * info.channels));
        EXPECT_EQ(sf_readf_double(file, sound.samples.data(), info.frames), info.frames);
        sf_close(file);
        return sound;
    }

    std::set<std::string> fileNames() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory.path))
            names.insert(entry.path().filename().string());
        return names;
    }

private:
    const TemporaryDirectory directory;
};
