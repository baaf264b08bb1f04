#!/usr/bin/python3 -B
"""The reader of write logs, the builder of states, the words for what is found, and the table."""

import pathlib
import random
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))

import atlas
import disks
import table
import write_log
from operations import operations
from states import BLOCK, Epoch, choices, epochs, pieces, states
from write_log import Flush, Mark, Write

SIZE = 1 << 20


def log_of(*entries, magic=write_log.MAGIC):
    """A log of (offset, flags, length, data)."""
    log = write_log.SUPER.pack(magic, 1, len(entries), 512).ljust(512, b"\0")
    for offset, flags, length, data in entries:
        log += write_log.ENTRY.pack(offset // 512, length // 512, flags, 0).ljust(512, b"\0") + data
    return log


class TheLog(unittest.TestCase):
    def test_is_a_list_of_events(self):
        log = log_of(
            (1024, 0, 512, b"a" * 512),
            (SIZE, 0, 4096, write_log.mark("begin")),
            (0, write_log.FLUSH, 0, b""),
            (4096, write_log.DISCARD, 8192, b""),
            (0, write_log.FLUSH, 512, b"b" * 512),
        )

        self.assertEqual(
            write_log.events(log, SIZE),
            [
                Write(1024, b"a" * 512),
                Mark("begin"),
                Flush(),
                Write(4096, bytes(8192)),
                Flush(),
                Write(0, b"b" * 512),
            ],
        )

    def test_of_another_format_or_with_an_unknown_flag_is_refused(self):
        for log in [log_of(magic=1), log_of((0, write_log.FUA, 512, bytes(512)))]:
            with self.assertRaises(write_log.Unexpected):
                write_log.events(log, SIZE)


def block(letter):
    return letter.encode() * BLOCK


def write(number, letter):
    return Write(number * BLOCK, block(letter))


def found(events, count=100, base=None):
    """The states of events: what blocks 0 to 2 begin with, and the phases."""
    return {
        ("".join(blocks.get(number, b".")[:1].decode() for number in range(3)), *sorted(phases))
        for phases, blocks in states(events, base or {}, count, random.Random(0))
    }


class TheStates(unittest.TestCase):
    def test_are_all_subsets_within_an_epoch_and_whole_earlier_epochs(self):
        events = [Mark("begin"), write(0, "a"), Flush(), write(1, "b"), write(2, "c"), Flush()]

        self.assertEqual({state for state, _ in found(events)}, {"...", "a..", "ab.", "a.c", "abc"})

    def test_have_torn_writes(self):
        events = [Mark("begin"), Write(0, block("a") + block("b"))]

        self.assertEqual({state for state, _ in found(events)}, {"...", "a..", ".b.", "ab."})

    def test_know_after_which_marks_a_crash_can_leave_them(self):
        events = [Mark("begin"), write(0, "a"), Mark("end"), write(1, "b"), Flush()]

        self.assertEqual(
            found(events),
            {
                ("...", "begin", "end"),  # the disk may have lost everything since the flush
                ("a..", "begin", "end"),
                (".b.", "end"),
                ("ab.", "end"),
            },
        )

    def test_after_a_flush_have_all_that_was_written_before_it(self):
        events = [Mark("begin"), write(0, "a"), Flush(), Mark("end")]

        self.assertEqual({state for state, *phases in found(events) if "end" in phases}, {"a.."})

    def test_before_the_first_mark_are_left_out(self):
        self.assertEqual(found([write(0, "a"), Flush(), Mark("begin")]), {("a..", "begin")})

    def test_keep_the_older_version_of_a_block_whose_newer_one_is_lost(self):
        events = [Mark("begin"), write(0, "a"), write(0, "b")]

        self.assertEqual({state for state, _ in found(events)}, {"...", "a..", "b.."})

    def test_change_only_the_written_part_of_a_block(self):
        events = [Mark("begin"), Write(512, b"x" * 512)]

        changes = [blocks for _, blocks in states(events, {0: block("o")}, 100, random.Random(0))]

        self.assertEqual(changes, [{}, {0: b"o" * 512 + b"x" * 512 + b"o" * (BLOCK - 1024)}])

    def test_of_a_long_epoch_are_all_prefixes_and_some_subsets_each_once(self):
        epoch = Epoch("begin")
        epoch.writes = [pieces(number * BLOCK, bytes(BLOCK)) for number in range(40)]

        chosen = list(choices(epoch, 30, random.Random(0)))

        self.assertEqual(len(chosen), len(set(chosen)))
        for count in range(41):
            self.assertIn(frozenset(epoch.first(count)), chosen)
        self.assertTrue(41 < len(chosen) <= 41 + 30)

    def test_of_a_log_without_a_flush_are_one_epoch(self):
        self.assertEqual(len(list(epochs([write(0, "a")]))), 1)


class TheWords(unittest.TestCase):
    def words(self, name, there, promised=None):
        operation = operations("large")[name]
        return operation.found(there(operation.old or b"", operation.new), promised)

    def test_tell_whole_texts_from_parts_of_them(self):
        for word, there in {
            "new": lambda old, new: new,
            "old": lambda old, new: old,
            "nothing": lambda old, new: None,
            "empty": lambda old, new: b"",
            "cut": lambda old, new: new[:5000],
            "zeros": lambda old, new: new[:5000] + bytes(len(new) - 5000),
            "mixed": lambda old, new: old[:BLOCK] + new[BLOCK:],
            "shortened": lambda old, new: old[:5000],
            "unreadable": lambda old, new: OSError(5, "Input/output error"),
            "stale": lambda old, new: new[:BLOCK] + b"---------removed000001.",
            "other": lambda old, new: new[1:],
        }.items():
            with self.subTest(word):
                self.assertEqual(self.words("replace", there), word)

    def test_of_appending_tell_whether_the_old_text_is_there(self):
        self.assertEqual(self.words("append", lambda old, new: new[: len(old) + 1]), "cut")
        self.assertEqual(self.words("append", lambda old, new: old[:-1]), "shortened")
        self.assertEqual(self.words("append", lambda old, new: bytes(BLOCK) + new[BLOCK:]), "shortened")
        self.assertEqual(self.words("append", lambda old, new: old + bytes(100)), "zeros")

    def test_after_a_sync_of_the_whole_text_allow_nothing_behind_it(self):
        for name in ("publish", "handle"):
            new = operations("large")[name].new
            self.assertEqual(self.words(name, lambda old, new: new + bytes(100), new), "zeros")

    def test_of_a_handle_count_what_is_promised_as_new(self):
        record = operations("large")["handle"].steps[1][2]

        self.assertEqual(self.words("handle", lambda old, new: new[: len(record) + 5], record), "new")
        self.assertEqual(self.words("handle", lambda old, new: new[: len(record) - 5], record), "cut")
        self.assertEqual(self.words("handle", lambda old, new: None, record), "nothing")


ROW, AFTER = ("publish", table.ANY_TIME), ("publish", table.AFTER["text", "."])
RESULTS = {(ROW, "ext4"): {"new", "old"}, (ROW, "xfs"): {"temporary", "empty"}, (AFTER, "ext4"): {"new"}}
DOCUMENT = f"before\n{table.BEGIN}\n{table.END}\nafter\n"


class TheTable(unittest.TestCase):
    def test_stands_between_the_markers_and_can_be_read_back(self):
        text = table.written(DOCUMENT, RESULTS)

        self.assertIn(
            "| operation | when the power fails | ext4 | xfs |\n"
            "| --- | --- | --- | --- |\n"
            "| publish | at any time | new, old | empty, temporary |\n"
            "| publish | after fsync of both | new |  |\n",
            text,
        )
        self.assertTrue(text.startswith("before\n") and text.endswith("\nafter\n"))
        read = table.documented(text)
        self.assertEqual({key: words for key, words in read.items() if words}, RESULTS)

    def test_keeps_the_columns_of_other_file_systems(self):
        earlier = RESULTS | {(table.EXAMINED, "xfs"): {"5 of 1"}, (table.EXAMINED, "ext4"): {"6 of 1"}}
        found = {(ROW, "ext4"): {"new"}, (table.EXAMINED, "ext4"): {"7 of 1"}}

        merged = table.merged(earlier, found)

        self.assertEqual(
            merged,
            {(ROW, "xfs"): RESULTS[ROW, "xfs"], (table.EXAMINED, "xfs"): {"5 of 1"}} | found,
        )
        self.assertEqual(list(merged)[-1][0], table.EXAMINED)

    def test_without_markers_is_refused(self):
        with self.assertRaises(SystemExit):
            table.documented("no markers")


class TheVerdict(unittest.TestCase):
    def verdict(self, row, system, *words, documented=None):
        found = atlas.Atlas()
        found.words[row, system].update(words)
        return list(atlas.violations(found, documented))

    def test_allows_what_the_document_tells(self):
        self.assertEqual(self.verdict(ROW, "ext4", "old", "new", documented=RESULTS), [])

    def test_names_what_the_document_does_not_tell(self):
        (wrong,) = self.verdict(ROW, "ext4", "empty", documented=RESULTS)

        self.assertEqual(
            wrong, "publish, at any time, ext4: empty was found in 1 states, and is not in the document"
        )

    def test_forbids_whatever_the_document_tells(self):
        for row, system, word in [
            (AFTER, "ext4", "old"),
            (AFTER, "ext4", "temporary"),
            (("publish in steps", table.ANY_TIME), "xfs", "empty"),
            (("append", table.ANY_TIME), "xfs", "shortened"),
            (ROW, "ext4", "stale"),
            (ROW, "btrfs", atlas.UNMOUNTABLE),
            (ROW, "btrfs", atlas.DAMAGED),
        ]:
            with self.subTest(row=row, word=word):
                (wrong,) = self.verdict(row, system, word, documented={(row, system): {word}})

                self.assertIn(f"{word} must not be found", wrong)

    def test_allows_contents_of_removed_files_only_where_data_are_not_ordered(self):
        self.assertEqual(self.verdict(ROW, "ext4 data=writeback", "stale"), [])

    def test_judges_the_time_before_a_sync_returned_as_without_it(self):
        recording = atlas.synced(operations("large")["publish"], ("text",))
        files = {"text": b"", "text.tmp-1": b"", "bystander": atlas.KEPT}

        self.assertEqual(atlas.judged(recording, "begin", files), (ROW, {"empty", "temporary"}))
        self.assertEqual(
            atlas.judged(recording, "1", files | {"bystander": b"", "text": recording.operation.new}),
            (("publish", "after fsync of the file"), {"new", "temporary", atlas.DAMAGED}),
        )
        self.assertEqual(atlas.judged(recording, "begin", None), (ROW, {atlas.UNMOUNTABLE}))


class TheImage(unittest.TestCase):
    def test_joins_neighbouring_blocks(self):
        self.assertEqual(
            list(disks.extents({5: block("c"), 1: block("a"), 2: block("b")})),
            [(BLOCK, block("a") + block("b")), (5 * BLOCK, block("c"))],
        )

    def test_puts_changes_over_the_base_and_forgets_them_again(self):
        folder = self.enterContext(tempfile.TemporaryDirectory(prefix="quen-io-crashes-"))
        file = pathlib.Path(folder) / "image"
        image = disks.Image(file, 3 * BLOCK, {0: block("a"), 1: block("b")})
        self.addCleanup(image.close)

        image.put({1: block("x"), 2: block("y")})
        self.assertEqual(disks.read_blocks(file), {0: block("a"), 1: block("x"), 2: block("y")})

        image.put({})
        self.assertEqual(disks.read_blocks(file), {0: block("a"), 1: block("b")})


class TheRecordings(unittest.TestCase):
    def test_sync_before_every_promise(self):
        for recording in atlas.recordings():
            steps = recording.operation.steps
            for number, step in enumerate(steps):
                if step[0] == "promise":
                    before = steps[number - len(recording.synced) : number]
                    self.assertEqual(before, [("fsync", file) for file in recording.synced])

    def test_are_each_made_once(self):
        every = list(atlas.recordings())
        keys = {(each.operation.name, each.operation.new, each.synced, each.schedule) for each in every}

        self.assertEqual(len(keys), len(every))


if __name__ == "__main__":
    unittest.main()
