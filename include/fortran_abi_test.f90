! Proves the Fortran twins of the installed library.
program fortran_abi_test
  use iso_c_binding
  implicit none
  interface
    integer(c_int) function elog_mark() bind(C, name="elog_mark")
      import :: c_int
    end function
  end interface
  integer :: flag
  character(len=16) :: mode

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

  call get_command_argument(1, mode)
  if (mode == 'die') call die(flag, 'dying from fortran')
  print '(a)', 'fortran_abi_test: ok'
end program
