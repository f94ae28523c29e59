// Standard input read as it arrives, through a real pipe: each sentence is handed out as soon
// as it is complete (its end, or a pause of the writer), the reader holds back a writer that
// runs ahead, and it stops when told even while the writer keeps the pipe open.

#include "cli/input_sentences.h"

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <string_view>
#include <thread>

#include "files/files.h"

namespace murmela {
namespace {

class Pipe {
public:
    Pipe() {
        if (::pipe2(ends_, O_CLOEXEC) != 0) {
            ADD_FAILURE() << "no pipe";
        }
    }
    ~Pipe() {
        closeWriter();
        ::close(ends_[0]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int reader() const { return ends_[0]; }
    void write(std::string_view text) { ASSERT_EQ(writeAll(ends_[1], text), 0); }
    void closeWriter() {
        if (ends_[1] >= 0) {
            ::close(ends_[1]);
            ends_[1] = -1;
        }
    }
    // Writes `text` again and again without waiting, until `most` bytes are written or the
    // pipe has stayed full for a second; gives how many were written.
    size_t writeUntilHeldBack(std::string_view text, size_t most) {
        ::fcntl(ends_[1], F_SETFL, O_NONBLOCK);
        size_t written = 0;
        for (int fullFor = 0; written < most && fullFor < 100;) {
            const ssize_t count = ::write(ends_[1], text.data(), text.size());
            if (count > 0) {
                written += static_cast<size_t>(count);
                fullFor = 0;
            } else if (count < 0 && errno == EAGAIN) {
                ++fullFor;
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
        return written;
    }

private:
    int ends_[2] = {-1, -1};
};

TEST(InputSentences, HandsOutEachSentenceOnceCompleteWhileTheWriterGoesOn) {
    Pipe pipe;
    InputSentences input(pipe.reader());
    // Half a sentence, then its end in a second write: one sentence, not two halves.
    pipe.write("The weather is nice");
    pipe.write(" today. Tomorrow it");
    EXPECT_EQ(input.next(), "The weather is nice today.");
    // The writer stops in the middle of a sentence and stays: the pause completes it (were it
    // not so, next() would wait for ever and the test would time out).
    EXPECT_EQ(input.next(), "Tomorrow it");
    EXPECT_FALSE(input.ready());
    pipe.write("will rain\n\nAll day long");
    EXPECT_EQ(input.next(), "will rain");  // the blank line
    pipe.closeWriter();
    EXPECT_EQ(input.next(), "All day long");  // the end of input
    EXPECT_EQ(input.next(), std::nullopt);
    EXPECT_TRUE(input.ready());
    EXPECT_EQ(input.next(), std::nullopt);
}

TEST(InputSentences, HoldsBackAWriterThatRunsAheadAndStopsWhenTold) {
    Pipe pipe;
    {
        InputSentences input(pipe.reader());
        // Nobody takes the sentences, so after a few the reader stops reading and the pipe
        // fills: the writer waits instead of the text piling up in memory. (A pipe holds
        // 64 KiB, and the reader reads 64 KiB at a time.)
        constexpr size_t offered = 8 << 20;
        EXPECT_LT(pipe.writeUntilHeldBack("A sentence of a few words. ", offered), 1u << 20);
        EXPECT_EQ(input.next(), "A sentence of a few words.");
        // Going away with the writer still there, and a full pipe, does not hang.
    }
    {
        Pipe silent;
        InputSentences input(silent.reader());
        EXPECT_FALSE(input.ready());
    }
}

TEST(InputSentences, ReportsInputThatCannotBeRead) {
    const int directory = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(directory, 0);
    {
        InputSentences input(directory);
        EXPECT_THAT([&] { input.next(); }, ::testing::ThrowsMessage<InputError>(
                                               "cannot read standard input: Is a directory"));
    }
    ::close(directory);
}

}  // namespace
}  // namespace murmela
