"""Runs what docs/python.md shows, block by block, and compares what it prints."""

import contextlib
import io
import os
import re
import tempfile
import unittest


@unittest.skipUnless("TAV_GUIDE" in os.environ, "there is no guide")
class GuideTest(unittest.TestCase):
    def test_all_blocks(self):
        with open(os.environ["TAV_GUIDE"]) as file:
            blocks = re.findall(
                r"^```(\w+)\n(.*?)^```(?:\n```text\n(.*?)^```)?", file.read(), re.S | re.M
            )
        self.assertGreater(len(blocks), 8)
        self.assertEqual({language for language, _, _ in blocks}, {"python"})
        names = {}
        with tempfile.TemporaryDirectory() as folder, contextlib.chdir(folder):
            for _, program, output in blocks:
                with contextlib.redirect_stdout(io.StringIO()) as printed:
                    exec(compile(program, "python.md", "exec"), names)
                self.assertEqual(printed.getvalue(), output, program)


if __name__ == "__main__":
    unittest.main()
