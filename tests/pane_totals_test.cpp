// Totals of files whose sizes together are more than a number holds.

#include "pane.h"

#include "test_env.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <unistd.h>

namespace {

constexpr int64_t kMost = std::numeric_limits<int64_t>::max();

class PaneTotals : public ::testing::Test {
  protected:
    // Sparse files of the largest size there is; a tmpfs takes them.
    void SetUp() override {
        for (const char* name : {"a", "b"}) {
            test_env::write_file(m_dir / name, "");
            if (truncate((m_dir / name).c_str(), kMost) != 0)
                GTEST_SKIP() << "no file of 8 EiB can be made in /dev/shm";
        }
        m_pane.navigate_to(m_dir.path(), true);
    }
    const test_env::TempDir m_dir{"/dev/shm"};
    Pane m_pane;
};

TEST_F(PaneTotals, the_total_of_a_folder_ends_at_the_largest_number) {
    EXPECT_EQ(m_pane.listing().total_bytes, kMost);
}

TEST_F(PaneTotals, the_total_of_a_filtered_folder_ends_at_the_largest_number) {
    m_pane.set_filter("?", true);
    EXPECT_EQ(m_pane.listing().total_bytes, kMost);
}

TEST_F(PaneTotals, the_total_of_the_marked_rows_ends_at_the_largest_number) {
    m_pane.select_all();
    EXPECT_EQ(m_pane.selected_count(), 2);
    EXPECT_EQ(m_pane.selected_bytes(), kMost);
}

}  // namespace
