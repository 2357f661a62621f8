#!/usr/bin/env bash
# Builds the documentation as a site, build/docs/html: the headers' comments, README.md, docs/*.md.
# Whatever lacks a comment, an owner or a thread rule is an error, and so is a link to nowhere.
# scripts/docs.sh [--sync [--check]]
#   --sync  only fills the documents' code blocks from the examples; with --check only says which are stale
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
case "${1:-}" in
    "") ;;
    --sync) exec "$root/scripts/lib/sync_docs.py" "${@:2}" ;;
    *) echo "usage: $0 [--sync [--check]]" >&2; exit 2 ;;
esac
"$root/scripts/setup.sh" docs

export PYTHONDONTWRITEBYTECODE=1  # the checks import each other; leave nothing beside them
html="$root/build/docs/html"
version="$(sed -nE 's/^project\(TnRobotKernel VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)"

say "building the site"
rm -rf "$root/build/docs"
mkdir -p "$root/build/docs"
{ cat docs/Doxyfile; echo "PROJECT_NUMBER = $version"; } | doxygen -

# Pages link files of the repository as copies; those that a browser would not show end in .txt.
# No link, no copy: grep's "nothing found" is fine.
{ grep -rhoE --include='*.html' 'href="source/[^"#]+' "$html" || true; } | sort -u | while read -r link; do
    copy="${link#href=\"}"
    original="${copy#source/}"
    [ -f "$original" ] || original="${original%.txt}"
    install -D -m 644 "$original" "$html/$copy"
done

say "checking comments and links"
scripts/lib/check_api_comments.py "$root/build/docs/xml"
mapfile -t pages < <(git ls-files --cached --others --exclude-standard '*.md')
scripts/lib/check_links.py "${pages[@]}" "$html"
say "the site begins at build/docs/html/index.html"
