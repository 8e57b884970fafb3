"""What the results of a match say about strength: Elo with its error, and the sequential test.

An opening is played twice with the colours exchanged, and such a pair of games is one observation:
its two games are not independent, since the opening may favour a side, so that errors taken over
single games would be too large. A pair is worth 0 to 2 points for the first engine in steps of a
half, so what there is to know of a match are five counts, of the pairs that gave 0, 0.5, 1, 1.5
and 2 points.
"""

import math

PAIR_SHARES = (0.0, 0.25, 0.5, 0.75, 1.0)   # points of a pair by its count's place, of one
FEWEST_PAIRS = 8        # with less no error is told: it would be a number without a meaning
CONFIDENT = 1.96        # standard deviations to each side that hold 95 % of a normal distribution
UNSEEN = 1e-3           # what stands for a count of 0, which would say that it can never come
NORMALISED = 800 / math.log(10)     # Elo by a standard deviation of one game, near 0


def elo_of(share):
    """The difference in Elo that lets one expect this share of the points."""
    if not 0 < share < 1:
        return math.copysign(math.inf, share - 0.5)
    return -400 * math.log10(1 / share - 1)


def share_of(elo):
    return 1 / (1 + 10 ** (-elo / 400))


def count_pairs(points):
    """The five counts of pairs worth so many points."""
    counts = [0] * 5
    for value in points:
        counts[round(2 * value)] += 1
    return counts


def moments(counts):
    """Mean and variance of a pair's share of its points."""
    total = sum(counts)
    mean = sum(share * count for share, count in zip(PAIR_SHARES, counts)) / total
    return mean, sum(count * (share - mean) ** 2
                     for share, count in zip(PAIR_SHARES, counts)) / total


def elo_range(counts):
    """Elo with the ends of its range of 95 %, or None where the pairs are too few for one."""
    total = sum(counts)
    if total < FEWEST_PAIRS:
        return None
    mean, variance = moments(counts)
    error = CONFIDENT * math.sqrt(variance / total)
    return tuple(elo_of(min(max(share, 0), 1)) for share in (mean, mean - error, mean + error))


def normalised_elo(counts):
    """The difference in standard deviations of a game in place of points, on a scale that is Elo's
    where no game is drawn, and its half range of 95 %. It depends less than Elo on the openings and
    the time for a move, and how many games a proof takes depends on it alone. None where all pairs
    are worth the same."""
    total = sum(counts)
    mean, variance = moments(counts)
    if variance == 0:
        return None
    deviation = math.sqrt(2 * variance)     # of one game: two make a pair
    return (NORMALISED * (mean - 0.5) / deviation,
            NORMALISED * CONFIDENT / math.sqrt(2 * total))


# ---- The sequential test.
# The generalised sequential probability ratio test: of either hypothesis the likeliest
# distribution of pairs with its mean stands for all of them (X. Li, J. Liu, Z. Ying, "Generalized
# Sequential Probability Ratio Test for Separate Families of Hypotheses", Sequential Analysis 33,
# 2014). That distribution has the form found by A. Owen, "Empirical Likelihood", 2001, section 2.9:
# each frequency is divided by 1 + root * (share - mean).

def likeliest(frequencies, mean):
    """The likeliest probabilities for these frequencies among those with the given mean."""
    offsets = [share - mean for share in PAIR_SHARES]
    # All divisors must be positive; the sum falls from one end to the other.
    low, high = -1 / max(offsets), -1 / min(offsets)
    for _ in range(60):
        root = (low + high) / 2
        if sum(part * offset / (1 + root * offset)
               for part, offset in zip(frequencies, offsets)) > 0:
            low = root
        else:
            high = root
    return [part / (1 + root * offset) for part, offset in zip(frequencies, offsets)]


def log_likelihood_ratio(counts, elo0, elo1):
    """How much likelier the pairs are with elo1 than with elo0, as a logarithm."""
    if sum(counts) == 0:
        return 0.0
    counts = [count or UNSEEN for count in counts]
    total = sum(counts)
    frequencies = [count / total for count in counts]
    chances = [likeliest(frequencies, share_of(elo)) for elo in (elo0, elo1)]
    return sum(count * math.log(second / first)
               for count, first, second in zip(counts, *chances))


def sprt_bounds(alpha=0.05, beta=0.05):
    """The ratios at which the first hypothesis holds and at which the second does: alpha is the
    share of wrong proofs where the first is true, beta where the second is (A. Wald, "Sequential
    Analysis", 1947)."""
    return math.log(beta / (1 - alpha)), math.log((1 - beta) / alpha)


def verdict(ratio, bounds):
    """0 or 1 for the hypothesis that is accepted, or None while the test goes on."""
    if ratio <= bounds[0]:
        return 0
    return 1 if ratio >= bounds[1] else None


# ---- Words.

def summary(results, pairs):
    """Wins, draws and losses of the first engine, and the difference in Elo with its error, of the
    games' points and of those of the pairs."""
    count = len(results)
    if count == 0:
        return "games 0"
    wins, draws = results.count(1), results.count(0.5)
    share = sum(results) / count
    text = f"games {count}: won {wins}, drawn {draws}, lost {count - wins - draws}; " \
           f"{100 * share:.1f} %, "
    counts = count_pairs(pairs)
    found = elo_range(counts)
    if found is None:
        return f"{text}Elo {elo_of(share):+.1f} (too few pairs for an error)"
    text += "Elo {:+.1f} ({:+.1f} to {:+.1f} with 95 %)".format(*found)
    normalised = normalised_elo(counts)
    return text + (", normalised {:+.1f} ± {:.1f}".format(*normalised) if normalised else "")


def sprt_words(ratio, elos, bounds):
    """The state of the test in a line."""
    texts = {0: f"{elos[0]:g} Elo accepted", 1: f"{elos[1]:g} Elo accepted", None: "undecided"}
    return (f"SPRT {elos[0]:g} to {elos[1]:g}: log-likelihood ratio {ratio:+.2f} "
            f"({bounds[0]:.2f} to {bounds[1]:.2f}), {texts[verdict(ratio, bounds)]}")
