" Mapping files of kxmap. Other programs have files *.map too (linkers, MapServer, source maps), so the content decides:
" a rule's target and its "=" at the begin of one of the first 200 lines.
autocmd BufRead,BufNewFile *.map call s:Detect()

function! s:Detect() abort
  let l:rule = '\v^(\(\x{4},\x{4}\)|SEQ\(\x+,[0-9A-Fa-f,-]+\)|USER\(\@?\w+\)|\$\(\@?\w+\))\='
  for l:line in getline(1, 200)
    if l:line =~# l:rule
      setlocal filetype=kxmap
      return
    endif
  endfor
endfunction
