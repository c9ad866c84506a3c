"""Random choices, all of one seed."""

import math
import random


class Draw(random.Random):
    def chance(self, probability):
        return self.random() < probability

    def pick(self, *values):
        return self.choice(values)

    def log_uniform(self, lowest, highest):
        return math.exp(self.uniform(math.log(lowest), math.log(highest)))

    def number(self, lowest, highest):
        """A number as text, of any magnitude in between."""
        return f"{self.log_uniform(lowest, highest):.4g}"

    def some(self, values, most):
        """Up to `most` of them, in any order."""
        values = list(values)
        return self.sample(values, min(self.randint(0, most), len(values)))

    def text(self, most=12):
        """Short, and with all that a line of text should not hold."""
        letters = "abc XYZ019_-,;:()%&=?#@\t\n\r\x1b\x07\x7f\u00e4\u20ac"
        return "".join(self.choice(letters) for _ in range(self.randint(0, most)))
