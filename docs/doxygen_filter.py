#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Doxygen's input filter for the public headers: hands their plain //
comments to Doxygen as documentation, so that the headers need no comment
syntax of Doxygen's own.

- The licence line becomes "@file": with the comment lines that follow it,
  the file's own description.
- A comment on lines of its own documents the declaration below it.
- A comment behind a declaration (and its continuation lines beneath it,
  at the same column) documents that declaration ("///<").
- Comments behind braces, access specifiers and preprocessor lines other
  than #define stay plain comments.
- In the comment text, Doxygen's special characters are taken literally,
  except inside `code spans`.

Every line stays on its line, so Doxygen's line numbers are the header's.
Usage: doxygen_filter.py HEADER (the filtered text goes to stdout).
"""
import re
import sys

SPECIAL = re.compile(r'([\\@<>&#%$])')
FULL_LINE = re.compile(r'^(\s*)//(?!/)(.*)$')
PLAIN_CODE = re.compile(r'^\s*(#(?!\s*define\b).*|[{}]*;?|(public|protected|private)\s*:)\s*$')


def escape(p_text):
    """Doxygen's special characters taken literally, outside `code spans`."""
    l_parts = p_text.split('`')
    for i in range(0, len(l_parts), 2):
        l_parts[i] = SPECIAL.sub(r'\\\1', l_parts[i])
    return '`'.join(l_parts)


def comment_start(p_line):
    """The column of a // comment behind code, or -1 (strings skipped)."""
    l_quote = None
    i = 0
    while i < len(p_line) - 1:
        l_char = p_line[i]
        if l_quote:
            if l_char == '\\':
                i += 1
            elif l_char == l_quote:
                l_quote = None
        elif l_char in '"\'':
            l_quote = l_char
        elif p_line.startswith('//', i):
            return i
        i += 1
    return -1


def filter_lines(p_lines):
    l_out = []
    l_after_column = -1  # the column of the trailing comment just seen
    for l_number, l_line in enumerate(p_lines):
        l_text = l_line.rstrip('\n')
        if l_number == 0 and 'SPDX-License-Identifier' in l_text:
            l_out.append('/// @file')
            l_after_column = -1
            continue
        l_full = FULL_LINE.match(l_text)
        if l_full:
            l_indent, l_comment = l_full.groups()
            if l_after_column >= 0 and len(l_indent) == l_after_column:
                l_out.append(l_indent + '///<' + escape(l_comment))
            else:
                l_out.append(l_indent + '///' + escape(l_comment))
                l_after_column = -1
            continue
        l_after_column = -1
        l_start = comment_start(l_text)
        if l_start < 0 or l_text.startswith('///', l_start):
            l_out.append(l_text)
            continue
        l_code, l_comment = l_text[:l_start], l_text[l_start + 2:]
        if PLAIN_CODE.match(l_code):
            l_out.append(l_text)
            continue
        l_out.append(l_code + '///<' + escape(l_comment))
        l_after_column = l_start
    return l_out


def main():
    with open(sys.argv[1], encoding='utf-8') as l_file:
        l_lines = l_file.readlines()
    sys.stdout.write('\n'.join(filter_lines(l_lines)) + '\n')


if __name__ == '__main__':
    main()
