## -*- texinfo -*-
## @deftypefn {} {@var{status} =} corpus_survives (@var{folder})
## Runs pq_info, pq_read and pq_stats on every .parquet file under @var{folder} (two levels)
## in this one Octave process.  Each call either answers or fails with an error that carries
## an identifier; anything else (an error without identifier) makes @var{status} 1.  A crash
## ends the process, which ctest reports.  Prints one line per failure without identifier and
## a summary last.  A missing folder is skipped with a message.
## @end deftypefn

function status = corpus_survives (folder)
  status = 0;
  if (! isfolder (folder))
    printf ("corpus_survives: %s is absent: skipped\n", folder);
    return;
  endif
  files = [listed(folder), listed(fullfile (folder, "*"))];
  runs = 0; answered = 0; refused = 0; unidentified = 0;
  calls = {@(f) pq_info (f), @(f) pq_read (f), @(f) pq_stats (f), ...
           @(f) pq_read (f, "DatesAs", "datenum")};
  for i = 1:numel (files)
    for c = 1:numel (calls)
      runs++;
      try
        calls{c} (files{i});
        answered++;
      catch err
        if (strncmp (err.identifier, "VANTRO:", 7))
          refused++;
        else
          unidentified++;
          printf ("no identifier: %s (call %d): %s\n", files{i}, c, err.message);
        endif
      end_try_catch
    endfor
  endfor
  ## The package still works after all of them.
  tmp = [tempname() ".parquet"];
  pq_write (tmp, struct ("x", [1; 2]));
  alive = isequal (pq_read (tmp), struct ("x", [1; 2]));
  delete (tmp);
  printf ("files=%d runs=%d answered=%d refused=%d unidentified=%d alive=%d\n",
          numel (files), runs, answered, refused, unidentified, alive);
  status = double (unidentified > 0 || ! alive || runs == 0);
endfunction

function files = listed (pattern)
  found = dir (fullfile (pattern, "*.parquet"));
  found = found(! [found.isdir]);
  files = cellfun (@(d, n) fullfile (d, n), {found.folder}, {found.name}, "UniformOutput", false);
endfunction
