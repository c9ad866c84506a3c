"""Everything that a page shows, from the file of tags and the document of the run."""

import os
from dataclasses import dataclass, replace

from ..figures import CHANNELS, Page, Pair
from .channel_figures import channel_figures, walk
from .chunks import in_parallel
from .code_density import code_density
from .correlation import correlation_figures
from .errors import BadInput
from .intervals import interval_figures
from .pair_figures import sorted_pair
from .periodic_timing import periodic_timing
from .quantum import quantum_seen
from .rates import rate_figures
from .run_document import Document, document_notes, run_of, silent_tail_s
from .tag_file import TagFile, Tags
from .view import view_of
from .wide_view import wide_view

DEFAULT_CHANNEL_A = 0
DEFAULT_CHANNEL_B = 1
DEFAULT_WINDOW_PS = 1000


@dataclass(frozen=True)
class Wishes:
    """What arguments say; None: as the document has it, or else the default."""
    channel_a: int | None = None
    channel_b: int | None = None
    window_ps: int | None = None
    mode: str | None = None


def first_known(*values):
    return next(value for value in values if value is not None)


def pair_of(document, wishes):
    pair = Pair(
        first_known(wishes.channel_a,
                    document.whole("settings", "channel_a", low=0, high=CHANNELS - 1),
                    DEFAULT_CHANNEL_A),
        first_known(wishes.channel_b,
                    document.whole("settings", "channel_b", low=0, high=CHANNELS - 1),
                    DEFAULT_CHANNEL_B),
        first_known(wishes.window_ps, document.whole("settings", "coincidence_window_ps"),
                    DEFAULT_WINDOW_PS))
    if pair.channel_a == pair.channel_b:
        raise BadInput(f"channels A and B of the pair are both channel {pair.channel_a}")
    return pair


def pair_notes(document, wishes, pair):
    if document.path is None:
        if None in (wishes.channel_a, wishes.channel_b, wishes.window_ps):
            return [f"No document says what the run asked for: the pair is channels "
                    f"{pair.channel_a} and {pair.channel_b}, and the window {pair.window_ps} ps."]
        return []
    run = (document.whole("settings", "channel_a"), document.whole("settings", "channel_b"),
           document.whole("settings", "coincidence_window_ps"))
    if run != (pair.channel_a, pair.channel_b, pair.window_ps):
        return [f"Pair and window are not those of the run's report, which had channels {run[0]} "
                f"and {run[1]} and {run[2]} ps."]
    return []


def ignored_notes(tags):
    if not tags.ignored:
        return []
    return [f"{tags.ignored} rows of the file have a channel above {CHANNELS - 1} and are left "
            "out."]


def sample_notes(correlation):
    if correlation.sampled == 1:
        return []
    return [f"There are too many pairs within the window: histogram, peak, width and side windows "
            f"are those of {100 * correlation.sampled:.3g} % of the tags of A."]


def shown_name(path):
    """For the page: without directory, and a text whatever its bytes are."""
    return os.path.basename(os.fsencode(path)).decode("utf-8", "replace")


def make_page(tags_path, json_path=None, wishes=Wishes()):
    """Raises BadInput when there is nothing to show."""
    document = Document(json_path)
    pair = pair_of(document, wishes)
    with TagFile(tags_path) as file:
        tags = Tags(file)
        return figures_of(file, tags, document, pair, wishes, shown_name(tags_path),
                          None if json_path is None else shown_name(json_path))


def figures_of(file, tags, document, pair, wishes, tags_name, json_name):
    run = run_of(document, tags_name, json_name, wishes.mode)
    if run.quantum_ps is None:
        run = replace(run, quantum_ps=quantum_seen(tags.times_ps))
    walks = [walk(times_ps) for times_ps in tags.times_ps]
    channels = tuple(channel_figures(c, walked, run.channel_mask)
                     for c, walked in enumerate(walks))
    view = view_of(walks, run.channel_mask)
    rates = rate_figures(walks, view, silent_tail_s(document), tags.rows_of)
    numbers = (pair.channel_a, pair.channel_b)
    lists = sorted_pair(walks[pair.channel_a], walks[pair.channel_b])
    correlation = correlation_figures(lists, numbers, pair.window_ps)
    notes = [*file.notes, *ignored_notes(tags), *document_notes(document, channels),
             *pair_notes(document, wishes, pair), *sample_notes(correlation)]
    return Page(
        run=run, pair=pair, tags=tags.total, channels=channels, rates=rates,
        correlation=correlation,
        wide=wide_view(lists, numbers, pair.window_ps, run.quantum_ps),
        intervals_per_channel=tuple(interval_figures(walked) for walked in walks),
        codes_per_channel=tuple(code_density(walked.parts, run.mode, run.quantum_ps)
                                for walked in walks),
        timing_per_channel=tuple(in_parallel(
            lambda walked: periodic_timing(walked.times_ps, rates.origin_ps, run.quantum_ps),
            walks)),
        notes=tuple(notes))
