// Evenly spaced, calendar-aligned tick times for a time axis.
#include <math.h>

#include "corvel/time.h"

namespace {

// Steps up to a day, in seconds; each divides the next larger calendar unit evenly.
constexpr double kSecondSteps[] = {2,   5,    10,   15,   20,   30,    60,    120,   300,   600,
                                   900, 1200, 1800, 3600, 7200, 14400, 21600, 28800, 43200, 86400};

double StepAboveOneSecond(double dt) {
  for (double step : kSecondSteps) {
    if (step >= dt) return step;
  }
  double d = dt / 86400, k = 1;
  while (d > 2) {
    if (d <= 5) return 5 * k * 86400;
    if (d <= 10) return 10 * k * 86400;
    k *= 10;
    d *= 0.1;
  }
  return 2 * k * 86400;
}

double StepUpToOneSecond(double dt) {
  double d = dt, k = 1;
  while (d <= 0.5) {
    if (d > 0.2) return 0.5 * k;
    if (d > 0.1) return 0.2 * k;
    k *= 0.1;
    d *= 10;
  }
  return k;
}

}  // namespace

int get_nice_times(int count, double *first, double *step, double t0, double t1) {
  *first = 0;
  if (t1 - t0 == 0 || count < 1) return 0;
  DateTime start;
  start.epoch = t0;
  etoh(&start);
  double dt = fabs(t1 - t0) / count;
  double s = dt > 1 ? StepAboveOneSecond(dt) : StepUpToOneSecond(dt);

  // Offset of t0 from the start of the calendar unit that the step divides.
  double offset;
  if (s <= 60) {
    offset = start.second;
  } else if (s <= 3600) {
    offset = start.minute * 60 + start.second;
  } else if (s <= 86400) {
    offset = (start.hour * 60 + start.minute) * 60 + start.second;
  } else {
    offset = ((start.doy * 24.0 + start.hour) * 60 + start.minute) * 60 + start.second;
  }

  if (s == 60 || s == 3600) {
    *first = offset == 0 ? t0 : t0 + s - offset;
  } else {
    double n = trunc(offset / s - 0.0001) + 1;
    *first = t0 + n * s - offset;
  }
  *step = s;
  return 0;
}
