// SPDX-License-Identifier: Apache-2.0
// The floor of csv-parse: the bytes that end a field are looked for 16 at a time, a field is told by where it lies, and
// each is checked to be UTF-8. There are no limits, and a file with quotes is refused.
#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "measure.h"

enum { chunk = 65536, fieldsOfRow = 64 };

typedef struct {
  char const* text;
  size_t size;
} Field;

static char buffer[2 * chunk + 16];
static size_t rowBegin, end;
static Field fields[fieldsOfRow];

__attribute__((unused)) static int isStop(char byte) {
  return byte == ',' || byte == '"' || byte == '\r' || byte == '\n';
}

static size_t stopByte(size_t from) {
#ifdef __SSE2__
  __m128i const comma = _mm_set1_epi8(','), quote = _mm_set1_epi8('"'), cr = _mm_set1_epi8('\r'),
                lf = _mm_set1_epi8('\n');
  for (; from < end; from += 16) {
    __m128i const block = _mm_loadu_si128((__m128i const*)(void const*)(buffer + from));
    __m128i const stops = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(block, comma), _mm_cmpeq_epi8(block, quote)),
                                       _mm_or_si128(_mm_cmpeq_epi8(block, cr), _mm_cmpeq_epi8(block, lf)));
    int const mask = _mm_movemask_epi8(stops);
    if (mask) {
      size_t const stop = from + (size_t)__builtin_ctz((unsigned)mask);
      return stop < end ? stop : end;
    }
  }
  return end;
#else
  while (from < end && !isStop(buffer[from])) ++from;
  return from;
#endif
}

static void fail(char const* why) {
  fprintf(stderr, "floor-csv: %s\n", why);
  exit(1);
}

static int isTrail(unsigned char byte) { return (byte & 0xC0) == 0x80; }

static void checkUTF8(char const* text, size_t size) {
  unsigned char const *at = (unsigned char const*)text, *const last = at + size;
  while (at < last) {
    uint64_t word;
    if (last - at >= 8 && (memcpy(&word, at, 8), (word & 0x8080808080808080U) == 0)) {
      at += 8;
    } else if (*at < 0x80) {
      ++at;
    } else {
      ptrdiff_t const trails = *at >= 0xF0 && *at < 0xF5 ? 3 : *at >= 0xE0 ? 2 : *at >= 0xC2 ? 1 : 4;
      if (last - at <= trails || *at > 0xF4 || trails == 4) fail("no UTF-8");
      if ((*at == 0xE0 && at[1] < 0xA0) || (*at == 0xED && at[1] > 0x9F) || (*at == 0xF0 && at[1] < 0x90) ||
          (*at == 0xF4 && at[1] > 0x8F))
        fail("no UTF-8");
      for (ptrdiff_t trail = 1; trail <= trails; ++trail)
        if (!isTrail(at[trail])) fail("no UTF-8");
      at += trails + 1;
    }
  }
}

/// The number of fields of the row; 0 when the buffer does not hold the whole of it.
static int readRow(void) {
  size_t at = rowBegin;
  for (int count = 0; count < fieldsOfRow;) {
    size_t const stop = stopByte(at);
    if (stop == end) return 0;
    fields[count++] = (Field){buffer + at, stop - at};
    checkUTF8(buffer + at, stop - at);
    at = stop + 1;
    if (buffer[stop] == ',') continue;
    if (buffer[stop] != '\n') fail("a byte that the data does not have");
    rowBegin = at;
    return count;
  }
  fail("too many fields");
  return 0;
}

static int refill(int file) {
  memmove(buffer, buffer + rowBegin, end - rowBegin);
  end -= rowBegin;
  rowBegin = 0;
  if (end > chunk) fail("a row that is too long");
  ssize_t const got = read(file, buffer + end, chunk);
  if (got > 0) end += (size_t)got;
  return got > 0;
}

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  keepSecondThread();
  long long rows = 0, all = 0, bytes = 0;
  struct timespec const began = timeNow();
  int const file = open(argv[1], O_RDONLY);
  if (file < 0) fail("no such file");
  while (refill(file)) {
    for (int count; (count = readRow()) > 0; ++rows, all += count) {
      for (int field = 0; field < count; ++field) bytes += (long long)fields[field].size;
    }
  }
  char done[100];
  snprintf(done, sizeof done, "%lld rows of %lld fields and %lld bytes", rows, all, bytes);
  report(began, done);
  return 0;
}
