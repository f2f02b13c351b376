! Proves the Fortran twins of the installed library.
program fortran_abi_test
  use iso_c_binding
  implicit none
  interface
    integer(c_int) function elog_mark() bind(C, name="elog_mark")
      import :: c_int
    end function
  end interface
  integer :: flag, yd, year, doy, hour, minute, month, day
  integer :: result, ivalue, bvalue, ptype
  integer(c_intptr_t) :: pf, sub, node
  double precision :: t, second, dvalue
  character(len=32) :: svalue
  character(len=1), parameter :: nl = achar(10)
  double precision, external :: str2epoch, epoch, h2e
  integer, external :: yearday, mday2doy
  character(len=16) :: mode
  character(len=40) :: text

  flag = 0
  call elog_init()
  call register_error(flag, 'station offline   ')
  call register_error(flag, 'station offline')
  call register_error(flag, 'second note')
  if (elog_mark() /= 2) stop 2
  call complain(flag, 'complaint from fortran')
  if (elog_mark() /= 0) stop 3
  call register_error(flag, 'to be cleared')
  call clear_register(%val(0))
  if (elog_mark() /= 0) stop 4

  ! The time twins.
  t = str2epoch('2024-02-01 07:05:09.047   ')
  if (abs(t - 1706771109.047d0) > 1d-6) stop 5
  yd = yearday(t)
  if (yd /= 2024032) stop 6
  if (epoch(2024032) /= 1706745600d0) stop 7
  call strtime(text, t)
  if (text /= '02/01/2024  07:05:09.047') stop 8
  call strdate(text, t)
  if (text /= '02/01/2024') stop 9
  call epoch2str(text, t, '%Y-%j %H:%M')
  if (text /= '2024-032 07:05') stop 10
  if (h2e(2024, 32, 7, 5, 9.047d0) /= t) stop 11
  call e2h(t, year, doy, hour, minute, second)
  if (year /= 2024 .or. doy /= 32 .or. hour /= 7 .or. minute /= 5) stop 12
  call doy2mday(doy, year, month, day)
  if (month /= 2 .or. day /= 1) stop 13
  if (mday2doy(2024, 3, 1) /= 61) stop 14

  ! The parameter-file twins: a tree read from its file on PFPATH, typed getters, putters.
  pf = 0
  call pfread('fortran_abi', pf, result)
  if (result /= 0) stop 20
  call pfget_int(pf, 'rate', ivalue)
  if (ivalue /= 40) stop 21
  call pfget_double(pf, 'sta{ANMO}{gain}', dvalue)
  if (dvalue /= 1.5d9) stop 22
  call pfget_boolean(pf, 'enabled', bvalue)
  if (bvalue == 0) stop 23
  call pfget_string(pf, 'chans[1]', svalue)
  if (svalue /= 'BHN') stop 24
  call pfput_int(pf, 'count', 7)
  call pfput_double(pf, 'ratio', 0.25d0)
  call pfput_boolean(pf, 'enabled', 0)
  call pfput_string(pf, 'net', 'IU  ')
  call pfget_int(pf, 'count', ivalue)
  call pfget_double(pf, 'ratio', dvalue)
  call pfget_boolean(pf, 'enabled', bvalue)
  call pfget_string(pf, 'net', svalue)
  if (ivalue /= 7 .or. dvalue /= 0.25d0 .or. bvalue /= 0 .or. svalue /= 'IU') stop 25
  ! A tree made here and grafted in; pfget gives the type code.
  call pfnew(3, sub)
  call pfput_string(sub, 'k', 'v')
  call pfput(pf, 'sub', sub)
  call pfget(pf, 'sub', node, ptype)
  if (ptype /= 3) stop 26
  ! Names with an underscore reach the double-underscore aliases.
  call pfget_int_(pf, 'rate', ivalue)
  call pfget_string_(pf, 'sub{k}', svalue)
  if (ivalue /= 40 .or. svalue /= 'v') stop 27
  ! Written out and read back through the search path.
  call pfwrite(pf, 'fortran_out.pf  ', result)
  if (result /= 0) stop 30
  call pffree(pf)
  call pfread('fortran_out', pf, result)
  call pfget_string(pf, 'sub{k}', svalue)
  if (result /= 0 .or. svalue /= 'v') stop 31
  call pffree(pf)
  if (pf /= 0) stop 28
  call pfcompile('a 1' // nl // 'b &Tbl{' // nl // 'x' // nl // '}' // nl, pf, result)
  call pfget_string(pf, 'b[0]', svalue)
  if (result /= 0 .or. svalue /= 'x') stop 29
  call pffree(pf)

  call get_command_argument(1, mode)
  if (mode == 'die') call die(flag, 'dying from fortran')
  print '(a)', 'fortran_abi_test: ok'
end program
