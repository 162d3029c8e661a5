// The console dump of an upload: its last line has no end and is shown all the same.
#include <gmock/gmock.h>

#include <stdio_ext.h>

#include "hostlink/upload.h"
#include "tests/unit/hostlink/link_bench.h"

namespace {

TEST(UploadConsole, dump_is_out_when_the_upload_ends) {
  LinkBench one;
  setvbuf(stdout, nullptr, _IOLBF, 0);
  one.bench.put_file("temp_log1.tar.gz", "abc");
  one.host_polls(3);
  EXPECT_EQ(send_log_file(3, one.link, kLogFile1), 0);
  EXPECT_EQ(__fpending(stdout), 0u);
  EXPECT_EQ(one.bench.output(), "FIN FIN\n\n61 62 63 ");
}

}  // namespace
