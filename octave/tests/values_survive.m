## -*- texinfo -*-
## @deftypefn {} {@var{status} =} values_survive ()
## Writes and reads back, in a temporary folder, the values Octave cannot hold as plain arrays:
## 64-bit integers with missing values (a struct with Type "integer") and text columns without
## any text.  @var{status} is 0 when every value and type comes back, 1 otherwise (with a line
## saying what differs).
## @end deftypefn

function status = values_survive ()
  status = 0;
  folder = tempname ();
  mkdir (folder);
  unwind_protect
    ## The largest int64 and a missing value: neither fits a double column.
    wide = struct ("Type", "integer", "Values", [intmax("int64"); int64(0); intmin("int64")], ...
                   "Missing", [false; true; false]);
    file = fullfile (folder, "wide.parquet");
    pq_write (file, struct ("id", wide));
    R = pq_read (file);
    status = status | check (strcmp (R.id.Type, "integer"), "int64 with nulls reads as integer");
    status = status | check (isequal (R.id.Values(R.id.Missing == 0), wide.Values([1; 3])) ...
                             && strcmp (class (R.id.Values), "int64"), "int64 values");
    status = status | check (isequal (R.id.Missing, wide.Missing), "int64 missing mask");
    status = status | check (strcmp (pq_info (file).ArrowTypes{1}, "int64"), "int64 type kept");

    ## Text columns without text: no rows, only missing values.
    for texts = {cell(0, 1), {[]; []}}
      file = fullfile (folder, "text.parquet");
      pq_write (file, struct ("s", {texts{1}}));
      status = status | check (strcmp (pq_info (file).ArrowTypes{1}, "string"), ...
                               sprintf ("%dx1 cell without text is written as text", ...
                                        numel (texts{1})));
    endfor
  unwind_protect_cleanup
    confirm_recursive_rmdir (false, "local");
    rmdir (folder, "s");
  end_unwind_protect
  printf ("values_survive: %s\n", ifelse_text (status));
endfunction

function failed = check (ok, what)
  failed = ! ok;
  if (failed)
    printf ("values_survive: %s: wrong\n", what);
  endif
endfunction

function text = ifelse_text (status)
  if (status)
    text = "failed";
  else
    text = "all values came back";
  endif
endfunction
