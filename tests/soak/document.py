"""The document of json= against what the same run has printed."""

import json
import re

from report import ranking

# Null where the report has a number that means nothing.
OFTEN_NULL = re.compile(r"xcorr_\w+|max_gap_ms|min_dt_ps|bins_s")


def is_same(key, written, printed):
    if isinstance(printed, list):
        return len(written) == 4 and all(map(is_same, [key] * 4, written, printed))
    return written == printed or (written is None and bool(OFTEN_NULL.fullmatch(key)))


def compare_figures(document, report):
    figures, lists = document["figures"], document["lists"]
    for key, printed in report.figures.items():
        if key in figures and not is_same(key, figures[key], printed):
            yield f"document: {key} is {figures[key]}, not {printed}"
    expected = {key: [list(entry) for entry in ranking(text)]
                for key, text in report.figures.items() if key in lists}
    for key, printed in (expected | {"bins": report.bins}).items():
        if lists[key] != printed and not (lists[key] is None and OFTEN_NULL.fullmatch(key)):
            yield f"document: {key} is not what was printed"


def errors_of(status, line):
    """What may stand there, of a run with this status and this word on standard error."""
    if status < 2 or status == 3:
        return (None,)
    if status == 2:
        return (line,)
    return (None, "interrupted during set-up", f"ended by signal {status - 128}")


def one_mark(text):
    """Bytes that are no UTF-8 have one mark or several."""
    return text and re.sub("\ufffd+", "\ufffd", text)


def compare_with_document(content, status, line, report):
    """Yields what differs. `line`: on standard error, None: it is not known. `report`: None if
    there is none."""
    try:
        document = json.loads(content)
    except ValueError as error:
        yield f"document: {error}"
        return
    if document["exit_status"] != status:
        yield f"document: exit_status is {document['exit_status']}, not {status}"
    if line is not None and one_mark(document["error"]) not in errors_of(status, one_mark(line)):
        yield f"document: error is {document['error']!r}"
    if report and not report.settings.byte_probe:
        yield from compare_figures(document, report)
