" Syntax of kxmap's mapping files: targets, texts, tags, functions; what loses a rule in silence stands out as an error.
if exists('b:current_syntax')
  finish
endif
syntax case match

" Notes. One that holds "=" is tried as a rule.
syntax match kxmapComment /^#.*$/
syntax match kxmapCommentEquals /^#.*\zs=/ containedin=kxmapComment contained

" Targets: at the begin of the line, up to the first "=".
syntax match kxmapTag /(\x\{4},\x\{4})/
syntax match kxmapVariable /\$(@\?[A-Za-z0-9]\+)/
syntax match kxmapField /\<USER(@\?[A-Za-z0-9]\+)/
syntax match kxmapBlankBeforeEquals /^[^=#]\{-1,}\zs\s\+\ze=/
syntax match kxmapBlankBeforeTarget /^\s\+\ze[^=#]*=/

" Texts. What stands behind the closing quote is ignored.
syntax region kxmapText start=/"/ skip=/\\./ end=/"/ oneline contains=kxmapEscape
syntax match kxmapEscape /\\[\\n"]/ contained
syntax match kxmapBadEscape /\\[^\\n"]/ contained containedin=kxmapText

" Calls, and the names that are no function without brackets.
syntax match kxmapUnknown /\<[A-Za-z]\w*\ze(/
syntax match kxmapFunction /\<\(NULL\|SEQ\|USER\|equals\|not\|or\|and\|if\|concat\|split\|contains\|substr\|strlen\|indexof\|toUpper\|toLower\|dicomAge\|sub\|add\|mul\|mod\|div\|between\|rnd\|codenumber\|codestring\|translate\)\ze(/
syntax match kxmapNullWord /\<NULL\>\ze\s*\([,)]\|$\)/
syntax match kxmapSwallowed /,\zs,/
syntax match kxmapNumber /[=,(]\s*\zs-\?\d\+\ze\s*\([,)]\|$\)/

highlight default link kxmapComment Comment
highlight default link kxmapCommentEquals Todo
highlight default link kxmapTag Identifier
highlight default link kxmapVariable PreProc
highlight default link kxmapField PreProc
highlight default link kxmapText String
highlight default link kxmapEscape SpecialChar
highlight default link kxmapBadEscape Todo
highlight default link kxmapFunction Function
highlight default link kxmapUnknown Error
highlight default link kxmapNullWord Todo
highlight default link kxmapSwallowed Error
highlight default link kxmapBlankBeforeEquals Error
highlight default link kxmapBlankBeforeTarget Error
highlight default link kxmapNumber Number

let b:current_syntax = 'kxmap'
