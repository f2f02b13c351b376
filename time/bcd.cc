// Six-byte BCD time codes: day of year, hour, minute, second and hundredths of a second.
#include <math.h>
#include <time.h>

#include "corvel/time.h"
#include "time/civil.h"

namespace {

constexpr int kBcdDigits = 12;

void PutDigits(unsigned char *digits, int value, int count) {
  for (int i = count - 1; i >= 0; i--) {
    digits[i] = static_cast<unsigned char>(value % 10);
    value /= 10;
  }
}

int GetDigits(const unsigned char *digits, int count) {
  int value = 0;
  for (int i = 0; i < count; i++) value = value * 10 + digits[i];
  return value;
}

}  // namespace

void epoch2bcd(unsigned char *bcd, double epoch) {
  corvel::timecal::Fields f;
  corvel::timecal::BreakDownUtc(epoch, &f);
  int whole = static_cast<int>(f.second);
  // The hundredths are truncated; the microsecond allowance keeps a time written as .29 that
  // the double holds as .28999999 from losing a hundredth.
  int hundredths = static_cast<int>((f.second - whole) * 100 + 1e-4);
  if (hundredths > 99) hundredths = 99;
  unsigned char digits[kBcdDigits];
  PutDigits(digits, f.doy, 3);
  PutDigits(digits + 3, f.hour, 2);
  PutDigits(digits + 5, f.minute, 2);
  PutDigits(digits + 7, whole, 2);
  PutDigits(digits + 9, hundredths, 3);
  for (int i = 0; i < kBcdDigits / 2; i++) {
    bcd[i] = static_cast<unsigned char>(digits[2 * i] << 4 | digits[2 * i + 1]);
  }
}

void bcdtime(const unsigned char *bcd, DateTime *rec) {
  unsigned char digits[kBcdDigits];
  for (int i = 0; i < kBcdDigits / 2; i++) {
    digits[2 * i] = bcd[i] >> 4;
    digits[2 * i + 1] = bcd[i] & 0x0f;
  }
  // The code carries no year: it is taken from the clock.
  time_t now = time(nullptr);
  struct tm tm;
  gmtime_r(&now, &tm);
  rec->year = tm.tm_year + 1900;
  rec->doy = GetDigits(digits, 3);
  rec->hour = GetDigits(digits + 3, 2);
  rec->minute = GetDigits(digits + 5, 2);
  float whole = static_cast<float>(GetDigits(digits + 7, 2));
  float fraction = static_cast<float>(GetDigits(digits + 9, 3)) / 100.0f;
  rec->second = static_cast<double>(whole) + static_cast<double>(fraction);
  rec->date = static_cast<long>(rec->year) * 1000 + rec->doy;
  rec->epoch = dtoepoch(rec->date) + rec->hour * 3600.0 + rec->minute * 60.0 + rec->second;
  month_day(rec);
}
