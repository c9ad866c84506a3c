"""Long lists in pieces, worked on by two threads.

NumPy lets go of the interpreter's lock inside its loops, so threads are enough. A
piece is small: what is calculated on the way stays in the cache, and costs no memory
however long the list is.
"""

from concurrent.futures import ThreadPoolExecutor

THREADS = 2
CHUNK = 1 << 16  # entries


def pieces(start, stop, size=CHUNK):
    """(start, stop) of each piece, in order."""
    return [(i, min(i + size, stop)) for i in range(start, stop, size)]


def in_parallel(function, items):
    """The results of function(item), in the order of the items."""
    if len(items) < 2:
        return [function(item) for item in items]
    with ThreadPoolExecutor(THREADS) as pool:
        return list(pool.map(function, items))
