# Paragraphs of their own for the words that begin a rule in the headers' comments.
s/^([[:space:]]*\/\/\/) (Invariants \(under the lock\)|Lifetime|Results|Threads): +/\1 @rule{\2}/
