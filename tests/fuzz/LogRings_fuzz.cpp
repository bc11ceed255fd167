// SPDX-License-Identifier: MIT
// The log's rings as their readers find them, devlog and devdoctor, while a thread overwrites them all the time: each
// reader ends, and what it copies is cells of its own.

#include <devsupport/detail/logmgr/LogInfoShm.h>
#include <devsupport/logmgr/LogInfoShm.h>
#include <sched.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/Scribbler.h"
#include "tests/fuzz/StreamText.h"
#include "tools/devdoctor/Repair.h"
#include "tools/devdoctor/Report.h"
#include "tools/devdoctor/Rings.h"
#include "tools/devlog/LogRing.h"

namespace {

using devsupport::test::FuzzInput;
using devsupport::test::Scribble;
using devsupport::test::StreamText;

constexpr std::size_t kHeadBytes = 256 + 36;

/// The event ring, in an IPC namespace of this process's own.
TShmQueue &Ring() {
  static const bool s_open = ::unshare(CLONE_NEWIPC) == 0 && TLogInfoShm_Open(3, ~0U, "fuzz") == 1;
  if (!s_open) throw std::runtime_error("needs the right to make an IPC namespace");
  return _g_uLogInfoShmData.uEvtQue;
}

std::size_t BytesOf(const TShmQueue &ring) {
  return kHeadBytes + static_cast<std::size_t>(ring.nSlotCount) * ring.dwStride;
}

/// What a writer leaves, with some words of it changed.
void Fill(TShmQueue &ring, FuzzInput &input) {
  static const std::vector<std::uint8_t> s_new(static_cast<std::uint8_t *>(ring.shm.address),
                                               static_cast<std::uint8_t *>(ring.shm.address) + BytesOf(ring));
  std::memcpy(ring.shm.address, s_new.data(), s_new.size());
  for (std::size_t i = input.Below(40); i > 0; --i) TLogInfoShm_Write_Evt("a record", static_cast<int>(i));
  auto *words = static_cast<std::uint32_t *>(ring.shm.address);
  for (std::size_t i = input.Below(4); i > 0; --i) {
    const std::size_t where = input.Below(80);
    words[where] = static_cast<std::uint32_t>(input.Below(256)) | static_cast<std::uint32_t>(input.Below(256)) << 8;
  }
}

void ReadAsDevlog(FuzzInput &input) {
  static std::vector<devlog::Cell> s_room(devlog::kEventCells);
  devlog::LogRing reader(devlog::Ring::Event, s_room);
  const auto access = input.Below(2) == 0 ? devlog::Access::Look : devlog::Access::Take;
  if (reader.Attach(access) != devlog::Found::Attached) return;
  if (input.Below(2) != 0) {
    devlog::Position position{};
    position.index = static_cast<std::uint32_t>(input.Below(256));
    reader.GoOnFrom(position);
  }
  for (std::size_t looks = 1 + input.Below(8); looks > 0; --looks) {
    reader.HasNews();
    devlog::News news;
    if (!reader.CopyNew(news)) continue;
    ASSERT_LE(news.cells.size(), s_room.size());
    if (!news.cells.empty()) {
      EXPECT_GE(news.cells.data(), s_room.data());
      EXPECT_LE(news.cells.data() + news.cells.size(), s_room.data() + s_room.size());
    }
    const devlog::Figures figures = reader.Measure();
    EXPECT_LE(figures.used, figures.capacity);
    EXPECT_LT(figures.sequence, devlog::kSequences);
    reader.Pass(news.cells.size() - input.Below(2) % (news.cells.size() + 1));
  }
}

void ReadAsDevdoctor() {
  const auto report = std::make_unique<devdoctor::Report>();
  devdoctor::Repairs repairs;
  devdoctor::CheckRings(*report, repairs);
  const StreamText out(stdout);
  EXPECT_TRUE(report->Print(devdoctor::Format::Json));
  EXPECT_LE(report->Status(), 2);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzInput input(data, size);
  TShmQueue &ring = Ring();
  Fill(ring, input);
  const StreamText err(stderr);
  const Scribble scribble(ring.shm.address, BytesOf(ring), static_cast<std::uint32_t>(input.Below(256)));
  ReadAsDevlog(input);
  if (input.Below(16) == 1) ReadAsDevdoctor();
  return 0;
}
