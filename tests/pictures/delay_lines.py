"""The uneven delay lines of a simulated unit, after the rules of its page: each of 180
bins gets a width drawn from the mean plus or minus the nonuniformity, for each channel
on its own, and all are stretched together to fill the clock period."""

PERIOD_PS = 3333
BINS = 180
DELAY_LINE = 5  # the purpose of the random numbers
MASK = (1 << 64) - 1


class Mersenne:
    """The 64-bit Mersenne twister (MT19937-64) with its standard parameters."""

    def __init__(self, seed):
        self.state = [seed & MASK]
        for i in range(1, 312):
            last = self.state[-1]
            self.state.append((6364136223846793005 * (last ^ last >> 62) + i) & MASK)
        self.next = 312

    def number(self):
        if self.next == 312:
            for i in range(312):
                high = self.state[i] & (MASK << 31 & MASK)
                x = high | self.state[(i + 1) % 312] & (1 << 31) - 1
                twist = 0xB5026F5AA96619E9 if x & 1 else 0
                self.state[i] = self.state[(i + 156) % 312] ^ x >> 1 ^ twist
            self.next = 0
        x = self.state[self.next]
        self.next += 1
        x ^= x >> 29 & 0x5555555555555555
        x ^= x << 17 & 0x71D67FFFEDA60000
        x ^= x << 37 & 0xFFF7EEE000000000
        return x ^ x >> 43


def stream_seed(seed, purpose, channel):
    """Neighbouring numbers are mixed far apart."""
    mixed = seed << 16 | purpose << 8 | channel
    for _ in range(2):
        mixed = (mixed + 0x9E3779B97F4A7C15) * 0xBF58476D1CE4E5B9 & MASK
        mixed ^= mixed >> 29
    return mixed


def widths_ps(seed, channel, percent):
    """{position in the clock period: width of its bin in whole ps}. Bin n, counted
    backwards from the next clock edge, stands for the edge less 18.5 n ps, halves
    rounded up."""
    twister = Mersenne(stream_seed(seed, DELAY_LINE, channel))
    # Evenly from above 0 to 1, with 53 bits.
    drawn = [1 + percent / 100 * (2 * (((twister.number() >> 11) + 1) * 2.0**-53) - 1)
             for _ in range(BINS)]
    total = sum(drawn)
    ends = [0.0]
    for width in drawn:
        ends.append(ends[-1] + width * PERIOD_PS / total)
    ends[-1] = PERIOD_PS
    # A time belongs to the bin from whose beginning on it lies, before its end.
    widths = {}
    for n in range(BINS):
        place = -((37 * n + 1) // 2) % PERIOD_PS
        widths[place] = sum(ends[n] <= time_ps < ends[n + 1] for time_ps in range(PERIOD_PS))
    return widths
