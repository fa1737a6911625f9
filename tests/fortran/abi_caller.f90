! A Fortran caller of the exported toolkit: calls a handful of routines and
! writers through libtervak.so exactly as Fortran code calls them (implicit
! interfaces, constants by reference, hidden label lengths) and prints what
! it gets back. abi_caller_test makes the same calls from C++.
program abi_caller
  implicit none
  double precision :: A(3,3), Ainv(3,3), S(6), xN1(3), xN2(3), xN3(3)
  double precision :: S1, S2, S3, P, Q, Sig(6), D(6,6), D3(3,3), Props(9)
  double precision :: r, x, u(6), c(3), w(6)
  integer :: ierr, i, iv(12)
  logical, external :: lequal, is0arr
  double precision, external :: arcsin

  A = reshape([4d0, 1d0, 0.5d0, 2d0, 3d0, 0.2d0, -1d0, 0.7d0, 2d0], [3, 3])
  call matinvpiv(A, Ainv, 3)
  write(6,*) 'matinvpiv', Ainv

  S = [-120d0, -250d0, -90d0, 15d0, -8d0, 4d0]
  call prnsig(1, S, xN1, xN2, xN3, S1, S2, S3, P, Q)
  write(6,*) 'prnsig', S1, S2, S3, P, Q
  write(6,*) 'dirs', xN1, xN2, xN3
  call carsig(S1, S2, S3, xN1, xN2, xN3, Sig)
  write(6,*) 'carsig', Sig

  write(6,*) 'lequal', merge(1, 0, lequal(1d0, 1d0 + 1d-13, 1d-12)), &
       merge(1, 0, lequal(0d0, 1d-12, 1d-12))
  write(6,*) 'is0arr', merge(1, 0, is0arr([0d0, -0d0], 2)), merge(1, 0, is0arr(S, 6))
  ierr = 99
  x = arcsin(1.0000001d0, ierr)
  write(6,*) 'arcsin', x, ierr

  call dinprod(S, S, 6, r)
  write(6,*) 'dinprod', r
  call modul(S, r)
  call norm(S, u)
  write(6,*) 'modul', r, u
  w = S
  call addvec(w, S, 1d0, -0.5d0, 6, w)
  write(6,*) 'addvec', w
  call crossprod(S, S(4), c)
  write(6,*) 'crossprod', c
  call setveclen(w, 6, 2d0)
  write(6,*) 'setveclen', w

  Props = [0d0, 0d0, 4d4, 0.5d0, 5d0, 30d0, 0d0, 0.2d0, 100d0]
  call matriz3(Props, [300d0, 200d0, 50d0], D3, 1)
  write(6,*) 'matriz3', D3
  call matriz6_nl(D, 1d4, 6d3)

  flush(6)
  call wrivec(6, 'Prs', S, 3)
  call wrivec(6, 'df13_mcmdS', S, 6)
  call wrimat(6, 'D', D, 6, 6, 6)
  call wrival(6, 'gamma_p', P)
  call wriivl(6, 'it', 7)
  iv = [(i * i - 20, i = 1, 12)]
  call wriivc(6, 'iv', iv, 12)
  call wrivec5(6, 'Prs en primera iteración', S, 6)
  call wrivec(-1, 'silent', S, 6)
  call wrimat(0, 'silent', D, 6, 6, 6)
  write(6,*) 'end'
end program abi_caller
