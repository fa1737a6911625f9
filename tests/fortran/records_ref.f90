! Reference records written by the Fortran runtime itself, for values read
! from standard input:
!   nReal, then nReal lines each holding the bit pattern of a real (int64)
!   nInt,  then nInt lines each holding an int32
! For every real: list-directed, 1p,e10.3 and 1p,e12.5; for every int:
! list-directed and i4; then mixed list-directed records of labels, reals
! and ints, and an empty list.
program records_ref
  implicit none
  integer :: nReal, nInt, i, k
  integer(8), allocatable :: bits(:)
  integer, allocatable :: iv(:)
  double precision, allocatable :: x(:)

  read(5,*) nReal
  allocate(bits(nReal), x(nReal))
  do i = 1, nReal
    read(5,*) bits(i)
    x(i) = transfer(bits(i), 1.0d0)
  end do
  read(5,*) nInt
  allocate(iv(nInt))
  do i = 1, nInt
    read(5,*) iv(i)
  end do

  do i = 1, nReal
    write(6,*) x(i)
    write(6,'(1p,e10.3)') x(i)
    write(6,'(1p,e12.5)') x(i)
  end do
  do i = 1, nInt
    write(6,*) iv(i)
    write(6,'(i4)') iv(i)
  end do
  do i = 1, nReal
    k = iv(mod(i - 1, nInt) + 1)
    write(6,*) 'Prs', x(i), k, 'a', 'bc ', x(i)
    write(6,*) k, k, 'Prs en primera iteración', 'x'
  end do
  write(6,*)
  write(6,*) 'solo'
  write(6,*) '', ''
end program records_ref
