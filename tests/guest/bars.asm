; Eight vertical colour bars, and one block for each byte that the keyboard sends. The keys F1 to
; F4 change the resolution. What is shown is described in guests.h.

%define MODE_WIDTH  1024
%define MODE_HEIGHT 768
%include "boot.inc"

%define BAR_COUNT  8
%define BLOCK_SIZE 32
%define BLOCK_ROWS 4
%define KEY_F1     0x3b

main:
    call draw_bars
.wait:
    sti
    hlt
    cli
.drain:
    in al, 0x64
    test al, 1
    jz .wait
    mov ah, al
    in al, 0x60
    test ah, 0x20               ; a byte of the mouse
    jnz .drain
    movzx eax, al
    lea ecx, [eax - KEY_F1]
    cmp ecx, mode_count
    jb .change_mode
    call draw_block
    jmp .drain
.change_mode:
    call set_mode
    call draw_bars
    jmp .drain

; Sets mode number ecx through the display adapter's own registers: the BIOS is out of reach here.
set_mode:
    movzx eax, word [modes + ecx * 4]
    movzx ebx, word [modes + ecx * 4 + 2]
    mov [width], eax
    mov [height], ebx
    shl eax, 2
    mov [pitch], eax
    mov ecx, 4                  ; enable register: off while the others change
    xor eax, eax
    call write_register
    mov ecx, 1
    mov eax, [width]
    call write_register
    mov ecx, 2
    mov eax, [height]
    call write_register
    mov ecx, 3
    mov eax, 32
    call write_register
    mov ecx, 4
    mov eax, 0x41               ; on, linear frame buffer
    ; falls through
write_register:                 ; number ecx, value eax
    mov edx, 0x1ce
    xchg eax, ecx
    out dx, ax
    inc edx
    xchg eax, ecx
    out dx, ax
    ret

draw_bars:
    mov dword [count], 0
    mov eax, [width]
    shr eax, 3                  ; BAR_COUNT bars side by side
    mov ecx, eax
    xor ebx, ebx
    xor edx, edx
    mov esi, [height]
    xor ebp, ebp
.next:
    mov eax, [bar_colours + ebp * 4]
    call fill_rectangle
    add ebx, ecx
    inc ebp
    cmp ebp, BAR_COUNT
    jb .next
    ret

; Paints the block of keyboard byte eax: red is the byte, green its complement, blue the count.
draw_block:
    mov ebp, eax
    not al
    mov ah, al
    mov al, [count]
    shl ebp, 16
    or ebp, eax
    mov ecx, [width]
    shr ecx, 5                  ; blocks in a row
    mov eax, [count]
    xor edx, edx
    div ecx
    mov ebx, edx
    shl ebx, 5
    and eax, BLOCK_ROWS - 1
    inc eax
    shl eax, 5
    mov edx, [height]
    sub edx, eax
    mov ecx, BLOCK_SIZE
    mov esi, BLOCK_SIZE
    mov eax, ebp
    inc dword [count]
    jmp fill_rectangle

on_timer:
on_key:                         ; only ends the hlt: `main` reads the byte
    END_OF_INTERRUPT
    iret

bar_colours:
    dd 0xffffff, 0xffff00, 0x00ffff, 0x00ff00, 0xff00ff, 0xff0000, 0x0000ff, 0x000000
modes:
    dw 640, 480, 800, 600, 1024, 768, 1280, 960
mode_count equ ($ - modes) / 4
width:  dd MODE_WIDTH
height: dd MODE_HEIGHT
count:  dd 0
    FILL_IMAGE
