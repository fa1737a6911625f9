! The six diagnostic writers written directly with their Fortran formats,
! driven by cases read from standard input. Each case is three records:
!   kind unit lablen n la nrow ncol
!   the label (its first lablen bytes)
!   the values: bit patterns of reals (int64) or int32, possibly none
! kind: 1 wrival, 2 wriivl, 3 wriivc, 4 wrivec, 5 wrivec5, 6 wrimat.
program writers_ref
  implicit none
  integer :: kind, io, lablen, n, la, nrow, ncol, ios, cnt, i
  character(len=1024) :: line
  integer(8), allocatable :: bits(:)
  integer, allocatable :: iv(:)
  double precision, allocatable :: v(:)

  do
    read(5,*,iostat=ios) kind, io, lablen, n, la, nrow, ncol
    if (ios /= 0) exit
    read(5,'(a)') line
    select case (kind)
    case (1, 2)
      cnt = 1
    case (6)
      cnt = la * ncol
    case default
      cnt = n
    end select
    if (kind == 2 .or. kind == 3) then
      allocate(iv(max(cnt, 1)))
      read(5,*) (iv(i), i = 1, cnt)
    else
      allocate(bits(max(cnt, 1)), v(max(cnt, 1)))
      read(5,*) (bits(i), i = 1, cnt)
      do i = 1, cnt
        v(i) = transfer(bits(i), 1.0d0)
      end do
    end if
    select case (kind)
    case (1)
      call wrival(io, line(1:lablen), v(1))
    case (2)
      call wriivl(io, line(1:lablen), iv(1))
    case (3)
      call wriivc(io, line(1:lablen), iv, n)
    case (4)
      call wrivec(io, line(1:lablen), v, n)
    case (5)
      call wrivec5(io, line(1:lablen), v, n)
    case (6)
      call wrimat(io, line(1:lablen), v, la, nrow, ncol)
    end select
    if (allocated(iv)) deallocate(iv)
    if (allocated(bits)) deallocate(bits, v)
  end do

contains

  subroutine wrival(io, label, x)
    integer, intent(in) :: io
    character(len=*), intent(in) :: label
    double precision, intent(in) :: x
    if (io < 1) return
    write(6,*) label, x
  end subroutine wrival

  subroutine wriivl(io, label, k)
    integer, intent(in) :: io, k
    character(len=*), intent(in) :: label
    if (io < 1) return
    write(6,*) label, k
  end subroutine wriivl

  subroutine wriivc(io, label, iv, n)
    integer, intent(in) :: io, n
    character(len=*), intent(in) :: label
    integer, intent(in) :: iv(*)
    integer :: i
    if (io < 1) return
    write(6,*) label
    write(6,'((2(3x,5i4)))') (iv(i), i = 1, n)
  end subroutine wriivc

  subroutine wrivec(io, label, v, n)
    integer, intent(in) :: io, n
    character(len=*), intent(in) :: label
    double precision, intent(in) :: v(*)
    integer :: i
    if (io < 1) return
    if (len_trim(label) > 6) then
      write(6,*) label
      write(6,'((2(1x,3(1x,1p,e10.3))))') (v(i), i = 1, n)
    else
      write(6,'(A,(T7,2(1x,3(1x,1p,e10.3))))') label, (v(i), i = 1, n)
    end if
  end subroutine wrivec

  subroutine wrivec5(io, label, v, n)
    integer, intent(in) :: io, n
    character(len=*), intent(in) :: label
    double precision, intent(in) :: v(*)
    integer :: i
    if (io < 1) return
    write(6,*) label
    write(6,'(5(1x,1p,e12.5))') (v(i), i = 1, n)
  end subroutine wrivec5

  subroutine wrimat(io, label, a, la, nrow, ncol)
    integer, intent(in) :: io, la, nrow, ncol
    character(len=*), intent(in) :: label
    double precision, intent(in) :: a(la, *)
    integer :: i, j
    if (io < 1) return
    write(6,*) label
    do i = 1, nrow
      write(6,'(i4,(T7,2(1x,3(1x,1p,e10.3))))') i, (a(i, j), j = 1, ncol)
    end do
  end subroutine wrimat

end program writers_ref
