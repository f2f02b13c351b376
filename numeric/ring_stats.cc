// Statistics over the most recent stretch of a ring: the span of seconds that ends at the
// newest entry's time, walked from the newest entry towards older ones up to the first entry
// outside it.
//
// The span leaves its start out for the extremes, the tally, the search and the change test,
// and keeps it for the mean and the linear fit: a reading exactly span seconds old counts for
// the second kind only.
#include <math.h>

#include "corvel/ring.h"
#include "numeric/ring_internal.h"

namespace corvel {
namespace numeric {
namespace {

// The time where a span ending at the newest entry starts; false for an empty ring.
bool SpanStart(const Ring *ring, double span, double *t0) {
  Ring_entry newest;
  if (!EntryAt(ring, 0, &newest)) return false;
  *t0 = newest.time - span;
  return true;
}

// The largest (or smallest) value inside the span, which leaves its start out, and
// the newest entry holding it; gap markers are left out.
template <bool kSmallest>
double Extreme(const Ring *ring, int *index, double span) {
  double best = kSmallest ? INFINITY : -INFINITY;
  int found = -1;
  double t0;
  if (SpanStart(ring, span, &t0)) {
    const double skipped = SkippedValue(ring);
    ForEachEntry(ring, 0, [&](const Ring_entry &entry, int i) {
      if (!(entry.time > t0)) return false;
      const double value = entry.value;
      if (value == skipped) return true;
      if (kSmallest ? value < best : value > best) {
        best = value;
        found = i;
      }
      return true;
    });
  }
  if (index != nullptr) *index = found;
  return best;
}

// Sums of the readings in a span that keeps its start, gap markers left out.
struct SpanSums {
  int n = 0;       // readings summed
  int end = 0;     // entries examined: the span is entries 0 .. end - 1
  double t0 = 0;   // the span's start
  double sum = 0;  // of the values
};

// The mean needs a second pass over the same entries for the deviations, so the first one
// only sums. The skip test is a comparison with a value no entry equals while gaps are off,
// which keeps the loop to two well-predicted branches.
bool SumSpan(const Ring *ring, double span, SpanSums *s) {
  if (!SpanStart(ring, span, &s->t0)) return false;
  const double t0 = s->t0;
  const double skipped = SkippedValue(ring);
  int markers = 0;
  double sum = 0;
  const int end = ForEachEntry(ring, 0, [&](const Ring_entry &entry, int) {
    if (!(entry.time >= t0)) return false;
    const double value = entry.value;
    if (value == skipped) {
      markers++;
    } else {
      sum += value;
    }
    return true;
  });
  s->end = end;
  s->n = end - markers;
  s->sum = sum;
  return true;
}

// Σ(mean - v)² over the readings of entries 0 .. end - 1.
double SquaredDeviations(const Ring *ring, int end, double mean) {
  const double skipped = SkippedValue(ring);
  double squares = 0;
  ForEachEntry(ring, 0, [&](const Ring_entry &entry, int i) {
    if (i >= end) return false;
    const double value = entry.value;
    if (value != skipped) {
      const double d = mean - value;
      squares += d * d;
    }
    return true;
  });
  return squares;
}

}  // namespace
}  // namespace numeric
}  // namespace corvel

namespace cn = corvel::numeric;

double maxring(Ring *ring, int *index, double span) {
  return cn::Extreme<false>(ring, index, span);
}

double minring(Ring *ring, int *index, double span) { return cn::Extreme<true>(ring, index, span); }

int tallyring(Ring *ring, double span) {
  double t0;
  if (!cn::SpanStart(ring, span, &t0)) return -1;
  const double skipped = cn::SkippedValue(ring);
  int oldest = -1;
  cn::ForEachEntry(ring, 0, [&](const Ring_entry &entry, int i) {
    if (!(entry.time > t0) || entry.value == skipped) return false;
    oldest = i;
    return true;
  });
  return oldest;
}

int findring(Ring *ring, double value, double span) {
  double t0;
  if (!cn::SpanStart(ring, span, &t0)) return -1;
  int found = -1;
  cn::ForEachEntry(ring, 0, [&](const Ring_entry &entry, int i) {
    if (!(entry.time > t0)) return false;
    if (entry.value != value) return true;
    found = i;
    return false;
  });
  return found;
}

int changedring(Ring *ring, double span) {
  Ring_entry newest;
  if (!cn::EntryAt(ring, 0, &newest)) return 0;
  const double t0 = newest.time - span;
  int changed = 0;
  // The value comes first: a differing entry just outside the span is still reported.
  cn::ForEachEntry(ring, 1, [&](const Ring_entry &entry, int i) {
    if (!(entry.value == newest.value)) {
      changed = i;
      return false;
    }
    return entry.time > t0;
  });
  return changed;
}

int nearbymaxring(Ring *ring, double *time, double *value, double span) {
  const double earliest = *time - span, latest = *time + span;
  Ring_entry newest;
  if (!cn::EntryAt(ring, 0, &newest) || newest.time < earliest) return -1;
  double best = -9e38, best_time = 0;
  bool found = false;
  cn::ForEachEntry(ring, 0, [&](const Ring_entry &entry, int) {
    const double t = entry.time, v = entry.value;
    if (t < earliest) return false;
    if (t <= latest && v > best) {
      best = v;
      best_time = t;
      found = true;
    }
    return true;
  });
  if (!found) return -1;
  *time = best_time;
  *value = best;
  return 0;
}

int meanring(Ring *ring, int *n, double *mean, double *stdev, double span) {
  *n = 0;
  *mean = *stdev = 0;
  cn::SpanSums s;
  if (!cn::SumSpan(ring, span, &s) || s.n == 0) return -1;
  *n = s.n;
  *mean = s.sum / s.n;
  if (s.n >= 2) *stdev = sqrt(cn::SquaredDeviations(ring, s.end, *mean) / (s.n - 1));
  return 0;
}

double avgring(Ring *ring, double span) {
  cn::SpanSums s;
  if (!cn::SumSpan(ring, span, &s) || s.n == 0) return 0;
  return s.sum / s.n;
}

int linearfitring(Ring *ring, int *n, double *slope, double *intercept, double *correlation,
                  double span) {
  *n = 0;
  *slope = *intercept = *correlation = 0;
  double t0;
  if (!cn::SpanStart(ring, span, &t0)) return -1;
  const double skipped = cn::SkippedValue(ring);
  // x is the time since the span's start, which keeps the squares of epochs out of the sums.
  double sx = 0, sy = 0, sxy = 0, sxx = 0, syy = 0;
  int markers = 0;
  const int end = cn::ForEachEntry(ring, 0, [&](const Ring_entry &entry, int) {
    const double t = entry.time, y = entry.value;
    if (!(t >= t0)) return false;
    if (y == skipped) {
      markers++;
      return true;
    }
    const double x = t - t0;
    sx += x;
    sy += y;
    sxy += x * y;
    sxx += x * x;
    syy += y * y;
    return true;
  });
  const int count = end - markers;
  *n = count;
  if (count < 2) return -1;
  const double m = count;
  const double spread = sxx - sx * sx / m;
  if (spread == 0) {
    *slope = *intercept = INFINITY;
    return 0;
  }
  *slope = (sxy - sx * sy / m) / spread;
  *intercept = sy / m - (m * t0 + sx) * *slope / m;
  *correlation = (m * sxy - sx * sy) / sqrt((m * syy - sy * sy) * (m * sxx - sx * sx));
  return 0;
}
