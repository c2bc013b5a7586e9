# SPDX-License-Identifier: Apache-2.0
"""What README.md shows is what the tree holds."""
import pathlib
import re
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
README = (TREE / 'README.md').read_text(encoding='utf-8')


class Readme(unittest.TestCase):
    def test_its_example_is_the_one_that_is_built_and_run(self):
        blocks = re.findall(r'^```cpp\n(.*?)^```$', README, re.MULTILINE | re.DOTALL)
        licence, program = (TREE / 'examples' / 'list-tables.cpp').read_text(encoding='utf-8').split('\n', 1)
        self.assertTrue(licence.startswith('// SPDX-License-Identifier:'))
        self.assertEqual(blocks, [program])

    def test_its_links_lead_to_files_of_the_tree(self):
        links = [link for link in re.findall(r'\]\(([^)#]+)', README) if '://' not in link]
        self.assertIn('CONTRIBUTING.md', links)
        self.assertEqual([link for link in links if not (TREE / link).exists()], [])


if __name__ == '__main__':
    unittest.main()
