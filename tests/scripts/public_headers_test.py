# SPDX-License-Identifier: Apache-2.0
"""What the shared library exports is declared in a header that is installed."""
import pathlib
import re
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
ROOMS = TREE / 'TolvaQuickLook'


class PublicHeaders(unittest.TestCase):
    def test_no_other_header_exports_anything(self):
        listed = re.search(r'set\(TOLVA_PUBLIC_HEADERS\n(.*?)\)', (TREE / 'cmake' / 'TolvaLibrary.cmake').read_text(), re.DOTALL)
        public = set(listed.group(1).split())
        exporting = {header.relative_to(ROOMS).as_posix() for header in ROOMS.rglob('*.hpp')
                     if re.search(r'^[^/]*\bTOLVA_EXPORT\b(?! __)', header.read_text(encoding='utf-8'), re.MULTILINE)}
        self.assertIn('core/DatabaseReader.hpp', exporting)
        self.assertEqual(sorted(exporting - public), [], 'name it in cmake/TolvaLibrary.cmake, or export nothing from it')


if __name__ == '__main__':
    unittest.main()
