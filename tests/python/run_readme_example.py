"""Runs the Python example of README.md as it is written: the first ```python block after the heading
"## Python". Usage: run_readme_example.py <README.md>"""

import re
import subprocess
import sys

TIMEOUT_SECONDS = 60


def main() -> int:
    text = open(sys.argv[1], encoding="utf-8").read()
    section = text.partition("\n## Python\n")[2]
    match = re.search(r"^```python\n(.*?)^```$", section, re.MULTILINE | re.DOTALL)
    if not section or not match:
        print("FAIL: README.md has no ```python block under '## Python'")
        return 1
    run = subprocess.run([sys.executable, "-c", match.group(1)], timeout=TIMEOUT_SECONDS)
    print("README example exited with %d" % run.returncode)
    return run.returncode


if __name__ == "__main__":
    sys.exit(main())
