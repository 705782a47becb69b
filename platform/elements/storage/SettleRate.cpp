#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "elements/storage/SampleTimes.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

__extension__ using Wide = __int128;

struct Fraction {
  Wide numerator;
  Wide denominator;
};

Wide GreatestDivisor(Wide a, Wide b) {
  while (b != 0)
    a = std::exchange(b, a % b);
  return a;
}

// Reduced, and rounded where its parts are too large for one.
EditRate MakeRate(Fraction rate) {
  if (rate.numerator <= 0 || rate.denominator <= 0) {
    throw QELRuntimeError(QEL_TEXT("the track's rate of "
                                   << static_cast<int64_t>(rate.numerator) << "/"
                                   << static_cast<int64_t>(rate.denominator)
                                   << " samples a second cannot be: both parts are above zero"));
  }
  const Wide divisor = GreatestDivisor(rate.numerator, rate.denominator);
  rate = {rate.numerator / divisor, rate.denominator / divisor};
  while (std::max(rate.numerator, rate.denominator) > INT32_MAX)
    rate = {std::max<Wide>(rate.numerator / 2, 1), std::max<Wide>(rate.denominator / 2, 1)};
  return {static_cast<uint32_t>(rate.numerator), static_cast<uint32_t>(rate.denominator)};
}

Wide Ceil(Fraction value) {
  return (value.numerator + value.denominator - 1) / value.denominator;
}

// The fraction with the smallest parts from `low` to `high`, both above zero.
Fraction Simplest(Fraction low, Fraction high) {
  const Wide whole = low.numerator / low.denominator;
  const Fraction lowRest = {low.numerator - whole * low.denominator, low.denominator};
  const Fraction highRest = {high.numerator - whole * high.denominator, high.denominator};
  if (lowRest.numerator == 0)
    return {whole, 1};
  if (highRest.numerator >= highRest.denominator)
    return {whole + 1, 1};
  const Fraction rest = Simplest({highRest.denominator, highRest.numerator},
                                 {lowRest.denominator, lowRest.numerator});
  return {whole * rest.numerator + rest.denominator, rest.numerator};
}

// The search for a grid of equal steps that the times of a track lie on.
class RateSearch {
 public:
  RateSearch(const SampleTimes& times, Fraction units)
      : times_(times), units_(units), last_(times.Count() - 1) {
    for (const SampleTimes::Run& run : times.Runs()) {
      if (run.first < last_ && run.duration > 0)
        shortest_ = std::min(shortest_, run.duration);
    }
    if (shortest_ == INT64_MAX)  // one sample, or all at one time
      shortest_ = std::max<int64_t>(times.Duration(last_), 1);
  }

  RatedTimes Settle() const {
    if (IsOnShortestStep())
      return OnGrid(MakeRate({units_.numerator, units_.denominator * shortest_}), false);
    if (const auto constant = Best(ConstantRates(), true))
      return *constant;
    if (const auto gaps = Best(RatesOfShortest(), false))
      return *gaps;
    const Wide total = std::max<int64_t>(times_.Start(times_.Count()), 1);
    return {times_, MakeRate(units_),
            MakeRate({units_.numerator * times_.Count(), units_.denominator * total}), true};
  }

 private:
  // Every step a multiple of the shortest one, which is not a rare one.
  bool IsOnShortestStep() const {
    constexpr int64_t kMostMeanSteps = 4;
    return times_.Start(last_) / kMostMeanSteps <= shortest_ * last_ &&
           std::all_of(times_.Runs().begin(), times_.Runs().end(), [this](const auto& run) {
             return run.first >= last_ || (run.duration != 0 && run.duration % shortest_ == 0);
           });
  }

  // In thousandths of a unit of the file: what rounding to units and to milliseconds does.
  Wide Tolerance() const { return 1000 + Ceil(units_); }

  // The length of a step of the grid, and of a unit of the file, in the same parts of a second.
  Wide StepParts(EditRate rate) const { return units_.numerator * rate._denominator; }
  Wide UnitParts(EditRate rate) const { return units_.denominator * rate._numerator; }

  // Steps of the grid from one sample to the next.
  Wide Steps(int64_t duration, EditRate rate, bool isConstant) const {
    const Wide step = StepParts(rate);
    return isConstant ? 1 : (2 * duration * UnitParts(rate) + step) / (2 * step);
  }

  // How far the times stray from the grid, in tenths of a unit of the file; nothing when it is
  // further than rounding does.
  std::optional<Wide> Stray(EditRate rate, bool isConstant) const {
    Wide lowest = 0;
    Wide highest = 0;
    Wide gridTime = 0;
    for (size_t i = 0; i < times_.Runs().size() && times_.Runs()[i].first <= last_; ++i) {
      const SampleTimes::Run& run = times_.Runs()[i];
      const int64_t count = std::min(times_.RunEnd(i), last_ + 1) - run.first;
      const Wide step = Steps(run.duration, rate, isConstant) * StepParts(rate);
      if (step == 0 && run.first != last_)
        return std::nullopt;
      const Wide first = run.start * UnitParts(rate) - gridTime;
      const Wide last = first + (count - 1) * (run.duration * UnitParts(rate) - step);
      lowest = std::min({lowest, first, last});
      highest = std::max({highest, first, last});
      if (highest - lowest > Tolerance() * UnitParts(rate) / 1000)
        return std::nullopt;
      gridTime += count * step;
    }
    return 10 * (highest - lowest) / UnitParts(rate);
  }

  RatedTimes OnGrid(EditRate rate, bool isConstant) const {
    RatedTimes rated;
    rated.timeRate = rated.nominalRate = rate;
    for (size_t i = 0; i < times_.Runs().size(); ++i) {
      const SampleTimes::Run& run = times_.Runs()[i];
      const int64_t count = std::min(times_.RunEnd(i), last_) - run.first;
      rated.times.Add(count, static_cast<int64_t>(Steps(run.duration, rate, isConstant)));
    }
    rated.isVariable = rated.times.Start(last_) != last_;
    const Wide longest = Steps(times_.Duration(last_), rate, false);
    rated.times.Add(1, static_cast<int64_t>(std::max<Wide>(longest, 1)));
    return rated;
  }

  // On the grid that the times stray least from, of several the first.
  std::optional<RatedTimes> Best(const std::vector<EditRate>& rates, bool isConstant) const {
    std::optional<std::pair<Wide, EditRate>> best;
    for (const EditRate& rate : rates) {
      const auto stray = Stray(rate, isConstant);
      if (stray && (!best || *stray < best->first))
        best.emplace(*stray, rate);
    }
    return best ? std::optional(OnGrid(best->second, isConstant)) : std::nullopt;
  }

  // Whole rates and their relatives by 1000/1001 from `low` to `high`, and one beyond either.
  static void AddUsual(Fraction low, Fraction high, std::vector<EditRate>& rates) {
    constexpr int kMost = 64;
    for (const Fraction& family : {Fraction{1, 1}, Fraction{1000, 1001}}) {
      const Wide first = low.numerator * family.denominator / (low.denominator * family.numerator);
      const Wide last =
          Ceil({high.numerator * family.denominator, high.denominator * family.numerator});
      for (Wide rate = std::max<Wide>(first, 1); rate <= std::min(last, first + kMost); ++rate)
        rates.push_back(MakeRate({rate * family.numerator, family.denominator}));
    }
  }

  // Those about the mean rate.
  std::vector<EditRate> ConstantRates() const {
    std::vector<EditRate> rates;
    const Wide span = Wide{1000} * times_.Start(last_);
    if (span <= Tolerance())
      return rates;
    const Wide steps = Wide{1000} * last_ * units_.numerator;
    const Fraction mean = {steps, span * units_.denominator};
    AddUsual(mean, mean, rates);
    rates.push_back(MakeRate(Simplest({steps, (span + Tolerance()) * units_.denominator},
                                      {steps, (span - Tolerance()) * units_.denominator})));
    rates.push_back(MakeRate(mean));
    return rates;
  }

  std::vector<EditRate> RatesOfShortest() const {
    std::vector<EditRate> rates;
    const Wide shortest = Wide{1000} * shortest_;
    if (shortest < 3 * Tolerance())  // everything would fit
      return rates;
    AddUsual({units_.numerator * 1000, (shortest + Tolerance()) * units_.denominator},
             {units_.numerator * 1000, shortest * units_.denominator}, rates);
    return rates;
  }

  const SampleTimes& times_;
  const Fraction units_;
  const int64_t last_;  // sample; its own duration is whatever the writer made of it
  int64_t shortest_ = INT64_MAX;
};

}  // namespace

RatedTimes SettleRate(const SampleTimes& times, int64_t unitsNumerator, int64_t unitsDenominator) {
  const Fraction units = {unitsNumerator, unitsDenominator};
  MakeRate(units);  // refuses what cannot be
  return RateSearch(times, units).Settle();
}

}  // namespace qel
