#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""report.py RESULTS [--page]: the medians of one run as tables, ours against the best peer.

RESULTS is a folder with the JSON files of Google Benchmark, one a topic, and environment.json. With
--page, docs/performance.md and its charts are written; else the table of goals is printed. What
people have to say about a row stands in benchmarks/notes.md and is taken into the page.
"""

import collections
import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
PAGE = ROOT / "docs" / "performance.md"
CHARTS = ROOT / "docs" / "performance"
NOTES = ROOT / "benchmarks" / "notes.md"

OURS, PACKAGED = "ovattribute", "ovattribute_package"
QT = ["qt_cbor", "qt_variant"]
GLIB = ["glib_quark", "glib_intern_string"]
# These know no names while they build or compare: they append and compare bytes.
APPENDING = ["rapidjson", "msgpack_cxx", "libbson", "gvariant", "flexbuffers"]
ISO_639, ISO_3166 = "iso_639-3.json", "iso_3166-2.json"

# Title, and what is compared how, of every table.
TOPICS = {
    "build": ("Build and destroy a map, ns an attribute",
              "RapidJSON, msgpack-cxx, libbson, GVariant and FlexBuffers append without looking for "
              "the name; the first two keep a reference to it. Attributes come in another order than "
              "that in which their names were interned."),
    "build_in_order": ("The same, in the order in which names were interned, ns an attribute",
                       "Ours keeps its entries in that order."),
    "hit": ("Find a name that is there and read its value by type, ns",
            "In random order; ours are `TypedAttribute` constants, the others' texts that are not the "
            "map's own. QVariantMap and QCborMap return strings as QString."),
    "miss": ("Look for a name that is not there, ns",
             "Names as for hits, all of them known to the process."),
    "copy": ("Copy a map and give the copy up, ns",
             "Ours, Qt's and GVariant's copies are counted references, the others are deep."),
    "copy_set_destroy": ("Copy a map, set one attribute of the copy, give it up, ns",
                         "Ours and Qt's pay the copy here. libbson and QCborMap copy little more than "
                         "bytes."),
    "equal": ("Compare equal maps of separate storage, ns an attribute",
              "libbson and GVariant compare the bytes of the whole, so that the order of attributes "
              "counts."),
    "hash": ("Hash a map, ns an attribute", "No library keeps the result."),
    "trace": ("Trace text, ns an attribute", "Text for people; no peer."),
    "encode": ("Write a map to bytes, ns an attribute",
               "Memory is allocated anew. nlohmann::json and Qt write CBOR or MessagePack, QVariantMap "
               "QDataStream; GVariant stores memory as it lies."),
    "decode": ("Read a map from bytes and destroy it, ns an attribute",
               "msgpack-cxx copies no string and looks for no name; all others own what they read. "
               "GVariant, libbson and FlexBuffers are read in place and have no row."),
    "decode_other_order": ("The same, written by a process that interned its names in another order, ns "
                           "an attribute", "Ours sorts while it reads."),
    "bytes": ("Bytes on the wire",
              "With a package of just these names; the reference to it is part of the stream."),
    "json_read": ("JSON to a map and its end, MB/s",
                  "All but RapidJSON without suffix check UTF-8. RapidJSON, simdjson and "
                  "boost_json_arena give memory up as a whole, and RapidJSON and simdjson keep repeated "
                  "names; simdjson's tape is read only."),
    "json_pull": ("JSON without building, MB/s",
                  "Every string and number is looked at. Ours and simdjson's, which makes an index of the "
                  "whole text first, are pulled; the others call back, Boost.JSON with pieces of "
                  "strings."),
    "json_write": ("A map to JSON, MB/s of the document",
                   "Ours checks UTF-8, names and the order of calls."),
    "intern": ("Intern a name that is known, ns on the clock a hit, all threads together",
               "Ours counts the handle and gives it up; GLib keeps names for good; the accessor of "
               "oneTBB's concurrent_hash_map locks the entry."),
    "seal": ("Seal with EAX and AES-128 under a new key, MB/s",
             "The others keep their objects and Crypto++ its output from call to call; ours makes both "
             "anew."),
    "open": ("Open what was sealed, MB/s", "As for sealing."),
    "seal_random_nonce": ("Seal with a random nonce, MB/s", "The system's generator included; no peer."),
}
RATES = ["json_read", "json_pull", "json_write", "seal", "open", "seal_random_nonce"]

Goal = collections.namedtuple("Goal", "row ours peers factor kind")


def goals():
    """Ours may take `factor` of the best of `peers` (None: of all), or must reach it for rates."""
    def goal(row, factor, peers=None, ours=OURS, kind="goal"):
        return Goal(row, ours, peers, factor, kind)

    for size, hit, miss in ((8, .7, .7), (32, .6, .7), (1024, 1., 1.)):
        yield goal(f"hit/{size}", hit)
        yield goal(f"miss/{size}", miss)
    for size in (8, 32, 1024):
        yield goal(f"build/{size}", .7, ["boost_json"])
        yield goal(f"build/{size}", 1., ["libbson"], kind="stretch")
    for size, factor in ((32, 1.5), (1024, 5.)):
        yield goal(f"copy/{size}", 1.1, QT)
        yield goal(f"copy_set_destroy/{size}", factor, QT)
    yield goal("copy_set_destroy/1024", .5, QT, kind="stretch")
    yield goal("equal/1024", .7, "named")
    yield goal("hash/1024", .5)
    for variant in ("32", "1024", "nested"):
        yield goal(f"encode/{variant}", 1., ["msgpack_cxx"], PACKAGED)
        yield goal(f"encode/{variant}", 1.3, ["msgpack_cxx"])
    for variant in ("32", "1024", "nested"):
        yield goal(f"decode/{variant}", 1.3, ["msgpack_cxx"], PACKAGED)
        yield goal(f"decode/{variant}", 2., ["msgpack_cxx"])
        yield goal(f"decode/{variant}", .4, "owning", PACKAGED)
        yield goal(f"decode/{variant}", .4, "owning")
    yield goal("bytes/32", .65, ["nlohmann_msgpack", "nlohmann_cbor"], PACKAGED)
    yield goal(f"json_read/{ISO_639}", 1., ["rapidjson"])
    yield goal(f"json_read/{ISO_639}", 1.2, ["boost_json"])
    yield goal(f"json_pull/{ISO_639}", 1.2, ["rapidjson"])
    yield goal(f"json_pull/{ISO_639}", 1., ["boost_json"], kind="stretch")
    yield goal(f"json_write/{ISO_639}", 1., ["boost_json"])
    for threads in ("1_thread", "2_threads_distinct", "2_threads_same"):
        yield goal(f"intern/{threads}", .7, GLIB)
        yield goal(f"intern/{threads}", .6, ["tbb_hash_map"])
    for topic in ("seal", "open"):
        yield goal(f"{topic}/16", 1 / .8, ["cryptopp"])
        for size in (4096, 1 << 20):
            yield goal(f"{topic}/{size}", 1.2, ["botan", "cryptopp"])


def read_results(folder):
    """{row: {library: value}}: ns, bytes or MB/s."""
    table = {}
    for path in sorted(folder.glob("*.json")):
        if path.name == "environment.json":
            continue
        for run in json.loads(path.read_text(encoding="utf-8"))["benchmarks"]:
            if run.get("aggregate_name", "median") != "median" or run["run_name"].count("/") < 2:
                continue
            topic, variant, library = run["run_name"].split("/")[:3]
            if "bytes_per_second" in run:
                value = run["bytes_per_second"] / 1e6
            elif "items_per_second" in run:
                value = 1e9 / run["items_per_second"]
            else:
                continue
            if topic != "size":
                table.setdefault(f"{topic}/{variant}", {})[library] = value
            if "bytes" in run:
                table.setdefault(f"bytes/{variant}", {})[library] = run["bytes"]
    return table


def spread(folder):
    """How much the repetitions of a row differ: half of the rows and nine in ten stay below."""
    values = []
    for path in folder.glob("*.json"):
        if path.name != "environment.json":
            runs = json.loads(path.read_text(encoding="utf-8"))["benchmarks"]
            values += [run["cpu_time"] for run in runs if run.get("aggregate_name") == "cv"]
    values.sort()
    return values[len(values) // 2], values[len(values) * 9 // 10]


def row_order(row):
    variant = row.split("/")[1]
    return (int(variant) if variant.isdigit() else sys.maxsize, variant)


def is_rate(row):
    return row.split("/")[0] in RATES


def best(values, peers, rate):
    values = {library: values[library] for library in peers if library in values}
    return (max if rate else min)(values.items(), key=lambda item: item[1], default=None)


def peers_of(goal, values):
    others = [library for library in values if not library.startswith(OURS)]
    if goal.peers is None:
        return others
    if goal.peers == "named":
        return [library for library in others if library not in ("libbson", "gvariant")]
    if goal.peers == "owning":
        return [library for library in others if library != "msgpack_cxx"]
    return goal.peers


def number(value):
    return f"{value:,.0f}" if value >= 100 else f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def goal_rows(table):
    """Row, ours, best peer, ratio, goal, whether it is met; None where a peer is missing."""
    for goal in goals():
        values = table.get(goal.row, {})
        rate = is_rate(goal.row)
        peer = best(values, peers_of(goal, values), rate)
        title = goal.row + (" with package" if goal.ours == PACKAGED else "")
        if goal.ours not in values or peer is None:
            yield title, None, None, None, goal, None
            continue
        ratio = values[goal.ours] / peer[1]
        met = ratio >= goal.factor if rate else ratio <= goal.factor
        yield title, values[goal.ours], peer, ratio, goal, met
    for kind in ("distinct", "same"):
        one = table.get("intern/1_thread", {}).get(OURS)
        two = table.get(f"intern/2_threads_{kind}", {}).get(OURS)
        goal = Goal(f"intern/2_threads_{kind}", OURS, None, .5, "goal")
        if one and two:
            yield (goal.row, two, ("ours, 1 thread", one), two / one, goal, two / one <= .5)


def goals_table(table):
    lines = ["| row | ours | best peer | ratio | goal | met |", "|---|--:|--:|--:|--:|---|"]
    count = collections.Counter()
    for title, ours, peer, ratio, goal, met in goal_rows(table):
        bound = ("≥ " if is_rate(goal.row) else "≤ ") + f"{goal.factor:.2f}".rstrip("0").rstrip(".")
        if goal.kind != "goal":
            bound += " (stretch)"
        if ratio is None:
            lines.append(f"| {title} | | not measured | | {bound} | |")
            continue
        count[goal.kind, met] += 1
        lines.append(f"| {title} | {number(ours)} | {peer[0]} {number(peer[1])} | {ratio:.2f} "
                     f"| {bound} | {'yes' if met else '**no**'} |")
    met, missed = count["goal", True], count["goal", False]
    return lines, (f"{met} of {met + missed} goals are met, and {count['stretch', True]} of "
                   f"{count['stretch', True] + count['stretch', False]} stretch goals.")


def topic_table(rows):
    """All libraries, the best first in the row of the largest map."""
    variants = list(rows)
    rate = is_rate(f"{rows[variants[0]][1]}/")
    libraries = sorted({library for values, _ in rows.values() for library in values},
                       key=lambda x: (rows[variants[-1]][0].get(x, float("inf"))) * (-1 if rate else 1))
    lines = ["| | " + " | ".join(variants) + " |", "|---|" + "--:|" * len(variants)]
    for library in libraries:
        cells = (number(values[library]) if library in values else "" for values, _ in rows.values())
        name = f"**{library}**" if library.startswith(OURS) else library
        lines.append(f"| {name} | " + " | ".join(cells) + " |")
    return lines


BAR, STEP, LEFT, WIDE = 15, 19, 170, 520


def chart(title, rows):
    """Bars, one group a variant; what is more than four times ours is cut off."""
    body, y = [], 34
    for variant, (values, topic) in rows.items():
        body.append(f'<text x="10" y="{y + 12}" class="v">{variant}</text>')
        y += STEP
        limit = min(max(values.values()), 4 * values.get(OURS, max(values.values())))
        for library, value in sorted(values.items(), key=lambda x: x[1], reverse=is_rate(topic)):
            width = max(1, round(min(value, limit) / limit * WIDE))
            ours = ' class="o"' if library.startswith(OURS) else ""
            cut = " →" if value > limit else ""
            body.append(f'<text x="{LEFT - 6}" y="{y + 12}" text-anchor="end">{library}</text>'
                        f'<rect x="{LEFT}" y="{y}" width="{width}" height="{BAR}"{ours}/>'
                        f'<text x="{LEFT + width + 5}" y="{y + 12}">{number(value)}{cut}</text>')
            y += STEP
        y += 8
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {LEFT + WIDE + 90} {y}" '
        f'width="{LEFT + WIDE + 90}" height="{y}" font-family="sans-serif" font-size="12">',
        "<style>rect{fill:#9db4c8}.o{fill:#c8553d}.v,.t{font-weight:bold}.t{font-size:14px}</style>",
        f'<rect width="100%" height="100%" style="fill:#fff"/><text x="10" y="20" class="t">{title}</text>',
        *body, "</svg>", ""])


def read_notes():
    parts = re.split(r"^## (.+)\n", NOTES.read_text(encoding="utf-8"), flags=re.M)
    return {key.strip(): text.strip() for key, text in zip(parts[1::2], parts[2::2])}


def library_notes():
    """What the headers of the adaptors say of their libraries."""
    for path in sorted((ROOT / "benchmarks" / "peers").glob("*.h")):
        if path.name != "all.h":
            lines = path.read_text(encoding="utf-8").split("\n\n", 1)[0].splitlines()[1:]
            text = " ".join(line.removeprefix("//").strip() for line in lines if line.startswith("//"))
            yield f"- `{path.name}`: {text.removesuffix('#pragma once').strip()}"


def write_page(table, environment, deviations):
    notes = read_notes()
    unused = set(notes) - set(TOPICS)
    if unused:
        sys.exit(f"{NOTES}: no table is called {', '.join(sorted(unused))}")
    lines, summary = goals_table(table)
    versions = ", ".join(f"{name} {version}" for name, version in environment["peers"].items())
    out = [
        "# Performance", "",
        "<!-- Written by scripts/bench; what people say stands in benchmarks/notes.md. -->", "",
        f"This library beside others of its field, in one run of `scripts/bench`: medians of "
        f"{environment['repetitions']} repetitions in random order, which are of the processor's time "
        "but where threads are compared. Everything is compiled alike (`-O2 -DNDEBUG`). The heap is the C "
        "library's, told to keep what is given back.", "",
        f"- Machine: {environment['cpu']}, {environment['cores']} cores, load {environment['load']} "
        "when the run began",
        "- Standard deviation between the repetitions of a row: {:.0%} of the mean in the middle row, "
        "{:.0%} or less in nine of ten; ratios are no better than that".format(*deviations),
        f"- Compiler: {environment['compiler']}; {environment['system']}",
        f"- Commit: {environment['commit']}",
        f"- Peers: {versions}", "",
        "Data: maps of 8, 32 and 1024 attributes, 40 % short strings, 15 % of some 60 bytes, 30 % "
        "integers of 64 bits, 10 % doubles, 5 % Booleans; `nested` is a map of 100 maps of 8; JSON "
        "documents are of Debian's iso-codes. What the peers return is compared with what was put in "
        "before anything is measured.", "",
        "    scripts/bench              # all of it, and this page anew",
        "    scripts/bench --quick map  # one topic in short, the goals on the terminal",
        "    build/bench/bin/json_bench FILE...", "",
        "## Goals", "",
        "The ratio is ours over the best of the peers that the goal names: of times and sizes smaller "
        "is better, of MB/s larger. " + summary, "", *lines, "",
        "## The libraries", "", *library_notes(), ""]
    CHARTS.mkdir(exist_ok=True)
    for old in CHARTS.glob("*.svg"):
        old.unlink()
    for topic, (title, fairness) in TOPICS.items():
        rows = {row.split("/")[1]: (table[row], row) for row in sorted(table, key=row_order)
                if row.split("/")[0] == topic}
        if not rows:
            continue
        out += [f"## {title}", "", fairness, ""]
        if max(len(values) for values, _ in rows.values()) > 2:
            (CHARTS / f"{topic}.svg").write_text(chart(title, rows), encoding="utf-8")
            out += [f"![{title}](performance/{topic}.svg)", ""]
        out += [*topic_table(rows), ""]
        if topic in notes:
            out += [notes[topic], ""]
    PAGE.write_text("\n".join(out), encoding="utf-8")
    print(f"{PAGE.relative_to(ROOT)}: {summary}")


def main():
    folder = pathlib.Path(sys.argv[1])
    table = read_results(folder)
    if sys.argv[2:] == ["--page"]:
        environment = json.loads((folder / "environment.json").read_text(encoding="utf-8"))
        write_page(table, environment, spread(folder))
        return
    lines, summary = goals_table(table)
    print("\n".join(line for line in lines if "not measured" not in line))
    print(summary)


if __name__ == "__main__":
    main()
