"""Figures of a report once more, of tags that are known and in the plainest way."""


def literal_steps(times):
    return [later - earlier for earlier, later in zip(times, times[1:])]


def literal_coincidences(times, others, window_ps):
    found, b = 0, 0
    for time in times:
        while b < len(others) and others[b] < time - window_ps:
            b += 1
        found += b < len(others) and others[b] <= time + window_ps
    return found


def compare_with_tags(report, tags):
    """Yields what differs. `tags`: pairs of a channel and a time in ps, as they arrived."""
    lists = [[time for channel, time in tags if channel == n] for n in range(4)]
    for n, times in enumerate(lists):
        residues, steps = [time % 3333 for time in times], literal_steps(times)
        forward = [step for step in steps if step >= 0]
        expected = {
            f"ch{n}": len(times),
            f"ch{n}_mod3333_unique": len(set(residues)),
            f"ch{n}_mod3333_exact_zero": residues.count(0),
        }
        found = {key: report[key] for key in expected}
        expected |= {"violations": len(steps) - len(forward), "shortest": min(steps, default=0),
                     "gap": f"{max(forward, default=0) / 1e9:.3f}"}
        found |= {"violations": report["monotonic_violations"][n],
                  "shortest": report["min_dt_ps"][n], "gap": f"{report['max_gap_ms'][n]:.3f}"}
        if found != expected:
            yield f"{found}, not {expected}"
    settings = report.settings
    found = literal_coincidences(lists[settings.channel_a], lists[settings.channel_b],
                                 settings.window_ps)
    if found != report["coincidences"]:
        yield f"coincidences={report['coincidences']}, not {found}"
