"""The conditions that no test can show to matter: (file, decision, condition, reason). The decision is a part of
the source lines that it stands on, with single spaces, and the condition is its whole text; together they name
one condition. Each of them has to be uncovered."""

ELEMENTS = "it selects each element of a vector by itself, without a branch, which clang counts like a branch"

UNREACHABLE = [
    ("src/contents/utf8.cpp", "return one > other ? one : other;", "one > other", ELEMENTS),
    ("src/contents/utf8.cpp", "return one < other ? one : other;", "one < other", ELEMENTS),
    (
        "src/entries/delete_guard.cpp",
        "if (root.empty() || candidate == root) return true;",
        "root.empty()",
        "every absolute path has a root on POSIX; the guard states its rule without relying on that",
    ),
    (
        "src/entries/delete_guard.cpp",
        "if (candidate.relative_path().empty()) return true;",
        "candidate.relative_path().empty()",
        "a path without a relative part equals its root, which was compared before",
    ),
]
